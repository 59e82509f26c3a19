// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "symbols/orv_key_group.h"

#include "platform/orv_demangler.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

std::size_t hashOf(std::string_view text) { return std::hash<std::string_view>()(text); }

std::string_view withoutDot(std::string_view text) {
    return !text.empty() && text.back() == '.' ? text.substr(0, text.size() - 1) : text;
}

void removeFrom(std::vector<RangeRecord*>& records, RangeRecord* record) {
    records.erase(std::remove(records.begin(), records.end(), record), records.end());
}

/// The order of a key's list.
bool isAhead(RangeRecord const* a, RangeRecord const* b) {
    unsigned long long const aEnd = a->end;
    unsigned long long const bEnd = b->end;
    return aEnd != bEnd ? aEnd > bEnd : a->order < b->order;
}

} // namespace

KeyGroup::KeyGroup(RangeRecord* head, View view) : m_view(std::move(view)) {
    for (RangeRecord* record = head; record != nullptr; record = record->next) {
        enter(record);
        m_lastOfEnd[record->end] = record;
        m_previous[record] = m_last;
        m_last = record;
    }
}

KeyGroup::Texts const& KeyGroup::textsOf(char const* name) {
    std::string_view const text(name);
    std::size_t const key = hashOf(text);
    auto const known = m_texts.find(key);
    if (known != m_texts.end()) {
        return known->second;
    }
    SymMgrObjectPtr<ISymbolNameDemangler> const demangler = ISymbolNameDemangler::create(name, exec_format_Elf);
    std::string_view const shortForm(demangler->shortName());
    return m_texts.emplace(key, Texts{key, hashOf(withoutDot(text)), hashOf(shortForm), hashOf(withoutDot(shortForm))})
        .first->second;
}

void KeyGroup::enter(RangeRecord* record) {
    char const* const name = m_view.nameOf(*record);
    if (name == nullptr) {
        return;
    }
    Texts const& texts = textsOf(name);
    if (m_view.isPlain(*record)) {
        Same& same = m_byText[texts.name];
        same.plain.push_back(record);
        same.plainByEnd[record->end].push_back(record);
        return;
    }
    m_byText[texts.name].others.push_back(record);
    if (texts.shortForm != texts.name) {
        m_byText[texts.shortForm].others.push_back(record);
    }
}

void KeyGroup::leave(RangeRecord* record) {
    char const* const name = m_view.nameOf(*record);
    if (name == nullptr) {
        return;
    }
    Texts const& texts = textsOf(name);
    for (std::size_t const text : {texts.name, texts.shortForm}) {
        Same& same = m_byText[text];
        removeFrom(same.others, record);
        removeFrom(same.plain, record);
        removeFrom(same.plainByEnd[record->end], record);
    }
}

std::vector<RangeRecord*> KeyGroup::candidates(char const* name, unsigned long long start, unsigned long long end) {
    std::vector<RangeRecord*> found;
    Texts const& texts = textsOf(name);
    for (std::size_t const text : {texts.name, texts.nameWithoutDot, texts.shortForm, texts.shortFormWithoutDot}) {
        auto const same = m_byText.find(text);
        if (same != m_byText.end()) {
            found.insert(found.end(), same->second.others.begin(), same->second.others.end());
        }
    }
    auto const namesake = m_byText.find(texts.name);
    if (namesake != m_byText.end() && start == end && !namesake->second.plain.empty()) {
        // A label is what starts there under its name, the longest first.
        auto const& plain = namesake->second.plain;
        found.push_back(*std::min_element(plain.begin(), plain.end(), isAhead));
    }
    if (namesake != m_byText.end()) {
        auto const alike = namesake->second.plainByEnd.find(end);
        if (alike != namesake->second.plainByEnd.end()) {
            found.insert(found.end(), alike->second.begin(), alike->second.end());
        }
    }
    std::sort(found.begin(), found.end(), isAhead);
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

void KeyGroup::unlink(RangeRecord*& head, RangeRecord* record) {
    auto const known = m_previous.find(record);
    if (known == m_previous.end()) {
        return;
    }
    RangeRecord* const previous = known->second;
    m_previous.erase(known);
    leave(record);
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
    enter(record);
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
