#include "symbols/orv_key_group.h"

#include "platform/orv_demangler.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

std::string withoutDot(std::string text) {
    if (!text.empty() && text.back() == '.') {
        text.pop_back();
    }
    return text;
}

} // namespace

KeyGroup::KeyGroup(RangeRecord* head, std::function<char const*(RangeRecord const&)> nameOf)
    : m_nameOf(std::move(nameOf)) {
    for (RangeRecord* record = head; record != nullptr; record = record->next) {
        addTexts(record);
        m_lastOfEnd[record->end] = record;
        m_previous[record] = m_last;
        m_last = record;
    }
}

/// Names stay where they are, so that each is demangled once, however many share it.
std::string const& KeyGroup::shortName(char const* name) {
    auto const [entry, isNew] = m_shortNames.try_emplace(name);
    if (isNew) {
        entry->second = ISymbolNameDemangler::create(name, exec_format_Elf)->shortName();
    }
    return entry->second;
}

void KeyGroup::addTexts(RangeRecord* record) {
    char const* const name = m_nameOf(*record);
    if (name != nullptr) {
        m_byText[name].push_back(record);
        std::string const& shortForm = shortName(name);
        if (shortForm != name) {
            m_byText[shortForm].push_back(record);
        }
    }
}

std::vector<RangeRecord*> KeyGroup::candidates(char const* name) {
    std::vector<RangeRecord*> found;
    std::string const& shortForm = shortName(name);
    // Two names may differ in a dot at the end.
    for (std::string const& text : {std::string(name), withoutDot(name), shortForm, withoutDot(shortForm)}) {
        auto const same = m_byText.find(text);
        if (same != m_byText.end()) {
            found.insert(found.end(), same->second.begin(), same->second.end());
        }
    }
    std::sort(found.begin(), found.end(), [](RangeRecord const* a, RangeRecord const* b) {
        unsigned long long const aEnd = a->end;
        unsigned long long const bEnd = b->end;
        return aEnd != bEnd ? aEnd > bEnd : a->order < b->order;
    });
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

void KeyGroup::removeTexts(RangeRecord* record) {
    char const* const name = m_nameOf(*record);
    if (name == nullptr) {
        return;
    }
    for (std::string const& text : {std::string(name), shortName(name)}) {
        auto const same = m_byText.find(text);
        if (same != m_byText.end()) {
            auto& records = same->second;
            records.erase(std::remove(records.begin(), records.end(), record), records.end());
        }
    }
}

void KeyGroup::unlink(RangeRecord*& head, RangeRecord* record) {
    auto const known = m_previous.find(record);
    if (known == m_previous.end()) {
        return;
    }
    RangeRecord* const previous = known->second;
    m_previous.erase(known);
    removeTexts(record);
    (previous != nullptr ? previous->next : head) = record->next;
    if (record->next != nullptr) {
        m_previous[record->next] = previous;
    }
    auto const last = m_lastOfEnd.find(record->end);
    if (last != m_lastOfEnd.end() && last->second == record) {
        if (previous != nullptr && previous->end == record->end) {
            last->second = previous;
        } else {
            m_lastOfEnd.erase(last);
        }
    }
    m_last = m_last == record ? previous : m_last;
}

void KeyGroup::link(RangeRecord*& head, RangeRecord* record) {
    addTexts(record);
    // Behind all that end later or at the same place.
    auto const before = m_lastOfEnd.lower_bound(record->end);
    RangeRecord* const previous = before != m_lastOfEnd.end() ? before->second : nullptr;
    RangeRecord*& slot = previous != nullptr ? previous->next : head;
    record->next = slot;
    slot = record;
    m_previous[record] = previous;
    if (record->next != nullptr) {
        m_previous[record->next] = record;
    }
    m_lastOfEnd[record->end] = record;
    m_last = record->next == nullptr ? record : m_last;
}

} // namespace ORV_3_30
