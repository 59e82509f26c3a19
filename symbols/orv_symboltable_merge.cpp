// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What becomes of a newcomer to the symbol table that starts where others do.

#include "symbols/orv_symboltable.h"

#include <cstring>
#include <mutex>

namespace ORV_3_30 {
namespace {

/// Whether a merge would leave a record other than it is.
bool changesAnything(RangeRecord const& rival, unsigned int flags, MergeSide const& newcomer) {
    bool const takesName = (flags & merge_TakeName) != 0 && std::strcmp(rival.name, newcomer.name) != 0;
    bool const takesData =
        (flags & merge_TakeSymbolData) != 0 && (rival.kind != newcomer.kind || rival.visibility != newcomer.visibility);
    bool const takesEnd = (flags & (merge_ReplaceEnd | merge_ReplaceScope)) != 0 && rival.end != newcomer.lastEnd;
    return takesName || takesData || takesEnd;
}

} // namespace

RangeRecord* SymbolTable::insertBeside(Position at, unsigned long long end, Scope* scope, std::uint32_t order) {
    RangeRecord* const first = m_keys.records(at);
    if (scope == nullptr) {
        return first;
    }
    if (first != nullptr) {
        Position const ahead = m_keys.next(at);
        unsigned long long const nextKey = m_keys.isEnd(ahead) ? ~0ULL : m_keys.address(ahead);
        RangeRecord const* const last = m_keys.isEnd(ahead) ? nullptr : lastFrom(ahead);
        Scope* const nextScope = last != nullptr ? scopeOf(*last) : nullptr;
        ISymbol* const symbol = scope->symbol();
        unsigned int flags = merge_Different;
        RangeRecord* const rival = findRival(
            at, symbol != nullptr ? symbol->name() : nullptr, end,
            [&](RangeRecord const& record) { return scopeOf(record)->mergeDecision(*scope, nextKey, nextScope); },
            flags);
        if (rival != nullptr) {
            absorb(rival, flags, *scope, end, order);
            return rival;
        }
    }
    return makeRecord(at, end, scope, order);
}

KeyGroup* SymbolTable::groupAt(unsigned long long address) const {
    auto const found = m_groups.empty() ? m_groups.end() : m_groups.find(address);
    return found != m_groups.end() ? found->second.get() : nullptr;
}

template <typename Decide> RangeRecord* SymbolTable::findRival(Position at, char const* name, unsigned long long end,
                                                               Decide decide, unsigned int& flags) {
    unsigned long long const address = m_keys.address(at);
    KeyGroup* group = groupAt(address);
    std::size_t count = 0;
    if (group == nullptr || name == nullptr) {
        for (RangeRecord* rival = m_keys.records(at); rival != nullptr; rival = rival->next) {
            flags = decide(*rival);
            if (flags != merge_Different) {
                return rival;
            }
            if (++count == KeyGroup::k_least && name != nullptr) {
                break;
            }
        }
        if (count < KeyGroup::k_least || name == nullptr) {
            return nullptr;
        }
        auto made = std::make_unique<KeyGroup>(
            m_keys.records(at), KeyGroup::View{[this](RangeRecord const& record) { return nameOf(record); },
                                               [this](RangeRecord const& record) { return isRaw(record); }});
        group = made.get();
        m_groups[address] = std::move(made);
    }
    for (RangeRecord* const rival : group->candidates(name, address, end)) {
        flags = decide(*rival);
        if (flags != merge_Different) {
            return rival;
        }
    }
    return nullptr;
}

MergeNext SymbolTable::nextOf(Position at) const {
    Position const ahead = m_keys.next(at);
    if (m_keys.isEnd(ahead)) {
        return {};
    }
    RangeRecord const* const last = lastFrom(ahead);
    return {m_keys.address(ahead), last != nullptr ? nameOf(*last) : nullptr};
}

/// What starts at a key and ends first.
RangeRecord const* SymbolTable::lastFrom(Position at) const {
    if (KeyGroup const* const group = groupAt(m_keys.address(at))) {
        return group->last();
    }
    RangeRecord const* last = nullptr;
    for (RangeRecord const* record = m_keys.records(at); record != nullptr; record = record->next) {
        last = record;
    }
    return last;
}

/// Null for a scope without a symbol.
char const* SymbolTable::nameOf(RangeRecord const& record) const {
    if (record.isDeferred()) {
        return record.name;
    }
    ISymbol* const symbol = scopeOf(record)->symbol();
    return symbol != nullptr ? symbol->name() : nullptr;
}

/// What a rival's decision says is done to it: it stays in the table, as it is or with a new end.
void SymbolTable::absorb(RangeRecord* rival, unsigned int flags, Scope& newcomer, unsigned long long end,
                         std::uint32_t order) {
    if (flags == merge_Same) {
        return;
    }
    scopeOf(*rival);
    rival->name = nullptr; // the scope says from now on
    changeEnd(rival, flags, end, order, [&] { rival->scope.load()->merge(newcomer, flags, *rival); });
}

void SymbolTable::absorbSide(RangeRecord* rival, unsigned int flags, MergeSide const& newcomer, std::uint32_t order) {
    if (flags == merge_Same || (rival->isDeferred() && !changesAnything(*rival, flags, newcomer))) {
        return; // who holds the scope keeps the one that others get
    }
    changeEnd(rival, flags, newcomer.lastEnd, order, [&] {
        if (!rival->isDeferred()) {
            rival->scope.load()->mergeSide(newcomer, flags);
            return;
        }
        std::lock_guard<std::mutex> const scopes(m_scopesLock); // scopes are made of these
        if ((flags & merge_TakeName) != 0) {
            rival->name = newcomer.name;
        }
        if ((flags & merge_TakeSymbolData) != 0) {
            rival->visibility = static_cast<std::uint8_t>(newcomer.visibility);
            rival->kind = static_cast<std::uint8_t>(newcomer.kind);
        }
    });
    if (rival->isDeferred()) {
        // A scope that was made stays as it is, for those who hold it.
        std::lock_guard<std::mutex> const scopes(m_scopesLock);
        rival->scope.store(nullptr, std::memory_order_release);
    }
}

/// Runs a merge, and moves the rival's end if the flags say so.
template <typename Merge> void SymbolTable::changeEnd(RangeRecord* rival, unsigned int flags, unsigned long long end,
                                                      std::uint32_t order, Merge merge) {
    if ((flags & (merge_ReplaceEnd | merge_ReplaceScope)) == 0) {
        merge();
        return;
    }
    unlink(m_keys.lowerBound(rival->start), rival);
    auto const relink = [&](unsigned long long newEnd) {
        rival->end = newEnd;
        rival->order = order;
        link(m_keys.lowerBound(rival->start), rival); // erased keys have moved it
    };
    if ((flags & merge_ReplaceEnd) != 0) {
        if (!rival->isPoint()) {
            eraseDeserted(rival->start + 1, rival->end);
        }
    } else if (!rival->isDeferred()) {
        removeOtherRanges(*rival->scope);
    }
    try {
        merge();
    } catch (...) {
        relink(rival->end);
        throw;
    }
    relink(end);
}

void SymbolTable::addDeferred(IScopeMaker& maker, Deferred const& symbol) {
    std::unique_lock<Guard> const guard(m_guard);
    m_holdsDeciders = true;
    MergeSide const side{symbol.name, symbol.start, symbol.end, false, symbol.visibility, symbol.kind};
    std::uint32_t const order = m_arrivals++;
    Position at = m_keys.lowerBound(symbol.start);
    if (m_keys.isEnd(at) || m_keys.address(at) != symbol.start) {
        at = m_keys.insert(at, symbol.start, order);
    } else if (takeIntoRival(at, side, order)) {
        return;
    }
    // Only now: what a rival takes in, as all of a further load may be, needs no record.
    link(at, m_pool.make(symbol.start, symbol.end, nullptr, nullptr, symbol.name, symbol.token, order, numberOf(maker),
                         static_cast<std::uint8_t>(symbol.kind), static_cast<std::uint8_t>(symbol.visibility)));
}

/// Lets the first thing that starts at a key and is the same take a newcomer in; false if there is none.
bool SymbolTable::takeIntoRival(Position at, MergeSide const& side, std::uint32_t order) {
    if (m_keys.records(at) == nullptr) {
        return false;
    }
    MergeNext const next = nextOf(at);
    unsigned int flags = merge_Different;
    RangeRecord* const rival = findRival(
        at, side.name, side.lastEnd, [&](RangeRecord const& record) { return decide(record, side, next); }, flags);
    if (rival == nullptr) {
        return false;
    }
    absorbSide(rival, flags, side, order);
    if ((flags & merge_TakeName) != 0) {
        if (KeyGroup* const group = groupAt(rival->start)) {
            group->rename(rival);
        }
    }
    return true;
}

unsigned int SymbolTable::decide(RangeRecord const& rival, MergeSide const& newcomer, MergeNext const& next) const {
    if (rival.isDeferred()) {
        return m_makers[rival.maker]->mergeDecision(rival.side(), newcomer, next);
    }
    Scope& scope = *rival.scope.load();
    MergeSide mine{};
    return scope.mergeSideOf(mine) ? scope.mergeRule(mine, newcomer, next) : merge_Different;
}

/// Takes a scope's ranges behind its first out of the table.
void SymbolTable::removeOtherRanges(Scope& scope) {
    RangeList const& ranges = scope.ranges();
    for (std::size_t i = 1; i < ranges.size(); ++i) {
        Position const at = m_keys.lowerBound(ranges[i].start);
        if (m_keys.isEnd(at) || m_keys.address(at) != ranges[i].start) {
            continue;
        }
        RangeRecord* record = m_keys.records(at);
        while (record != nullptr && record->scope != &scope) {
            record = record->next;
        }
        if (record != nullptr) {
            unlink(at, record);
            eraseDeserted(record->start, record->end);
        }
    }
}

/// Erases the keys in [from, to) at which nothing is alive any more, now that a range over them went.
void SymbolTable::eraseDeserted(unsigned long long from, unsigned long long to) {
    Position at = m_keys.lowerBound(from);
    while (!m_keys.isEnd(at) && m_keys.address(at) < to) {
        unsigned long long const address = m_keys.address(at);
        if (isDeserted(at)) {
            m_keys.erase(at);
            at = m_keys.lowerBound(address);
        } else {
            at = m_keys.next(at);
        }
    }
}

bool SymbolTable::isDeserted(Position at) const {
    if (m_keys.records(at) != nullptr) {
        return false;
    }
    bool isAlive = false;
    m_keys.forEachSpanning(at, [&](RangeRecord& /*record*/) { isAlive = true; });
    return !isAlive;
}

} // namespace ORV_3_30
