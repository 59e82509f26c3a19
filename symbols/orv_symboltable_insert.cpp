// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// How ranges come into the symbol table, one way for all: a sorted insertion, ahead of which a rival that starts at the
// same place may take the newcomer in.
#include "symbols/orv_symboltable.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <stdexcept>

namespace ORV_3_30 {

// --- Who makes scopes

std::uint8_t SymbolTable::numberOf(IScopeMaker& maker) {
    auto const isOrFree = [&](IScopeMaker const* known) { return known == &maker || known == nullptr; };
    auto* const found = std::find_if(m_makers.begin(), m_makers.end(), isOrFree);
    if (found == m_makers.end()) {
        throw std::length_error("more makers of scopes than a module has");
    }
    if (*found == nullptr) {
        *found = &maker;
    }
    return static_cast<std::uint8_t>(found - m_makers.begin());
}

void SymbolTable::keep(Scope* scope) {
    std::lock_guard<std::mutex> const guard(m_scopesLock);
    m_scopes.emplace_back(scope);
}

/// Gives up what was kept a moment ago.
void SymbolTable::drop(Scope* scope) {
    std::lock_guard<std::mutex> const guard(m_scopesLock);
    auto const last = std::find_if(m_scopes.rbegin(), m_scopes.rend(),
                                   [&](SymMgrObjectPtr<Scope> const& kept) { return kept.get() == scope; });
    if (last != m_scopes.rend()) {
        m_scopes.erase(std::next(last).base());
    }
}

// --- Coming in

RangeRecord* SymbolTable::insert(Newcomer const& newcomer, IScopeMaker& maker) {
    Position at = m_keys.lowerBound(newcomer.start);
    bool const isNewKey = m_keys.isEnd(at) || m_keys.address(at) != newcomer.start;
    if (isNewKey) {
        at = m_keys.insert(at, newcomer.start, newcomer.order);
    } else {
        unsigned int flags = merge_Different;
        if (RangeRecord* const rival = findRival(at, newcomer.side, flags)) {
            absorb(rival, flags, newcomer);
            return rival;
        }
    }
    RangeRecord* record = nullptr;
    try {
        // Only now: what a rival takes in, as all of a further load may be, needs none.
        std::uint8_t const number = numberOf(maker);
        record = newcomer.scope == nullptr ? &m_records.emplace_back(newcomer.side)
                                           : &m_records.emplace_back(newcomer.start, newcomer.end);
        record->maker = number;
    } catch (...) {
        if (isNewKey) {
            m_keys.erase(at);
        }
        throw;
    }
    record->order = newcomer.order;
    record->scope = newcomer.scope;
    record->token = newcomer.token;
    link(at, record);
    return record;
}

RangeRecord* SymbolTable::insertScope(unsigned long long start, unsigned long long end, Scope& scope) {
    return insert({scope.mergeSide(), start, end, m_arrivals++, &scope}, scope.maker());
}

void SymbolTable::addSymbol(IScopeMaker& maker, MergeSide const& symbol, std::uint64_t token) {
    std::unique_lock<Guard> const guard(m_guard);
    insert({symbol, symbol.firstStart, symbol.lastEnd, m_arrivals++, nullptr, token}, maker);
}

bool SymbolTable::addRange(unsigned long long start, unsigned long long end, Scope* scope) {
    // A scope that is refused goes with this reference, unless somebody else holds one.
    SymMgrObjectPtr<Scope> const held(scope);
    std::unique_lock<Guard> const guard(m_guard);
    if (scope == nullptr) {
        Position const at = m_keys.lowerBound(start);
        if (m_keys.isEnd(at) || m_keys.address(at) != start) {
            m_keys.insert(at, start, m_arrivals++);
        }
        return false;
    }
    keep(scope); // first: once a record refers to it, nothing may fail
    bool const isTaken = insertScope(start, end, *scope)->scope == scope;
    if (!isTaken) {
        drop(scope);
    }
    return isTaken;
}

bool SymbolTable::addScope(Scope* scope) {
    if (scope == nullptr) {
        return false;
    }
    SymMgrObjectPtr<Scope> const held(scope);
    std::unique_lock<Guard> const guard(m_guard);
    keep(scope); // first: once a record refers to it, nothing may fail
    bool hasStayed = false;
    Scope* target = nullptr;
    RangeList const ranges = scope->ranges(); // a merge may change them while they go in
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        Scope* const holder = scopeOf(*insertScope(ranges[i].start, ranges[i].end, *scope));
        hasStayed |= holder == scope;
        target = target != scope ? holder : target;
    }
    handOverThunks(*scope, target != nullptr ? target : scope, hasStayed);
    if (!hasStayed) {
        drop(scope);
    }
    return hasStayed;
}

/// The thunks of a scope whose ranges others have taken go to those.
void SymbolTable::handOverThunks(Scope& scope, Scope* target, bool& hasStayed) {
    ThunkList const thunks = scope.thunks();
    for (SymMgrObjectPtr<Thunk> const& thunk : thunks) {
        RangeRecord* const record = insertScope(thunk->address(), thunk->address() + thunk->size(), *target);
        Scope* const holder = scopeOf(*record);
        hasStayed |= holder == &scope;
        if (target != &scope && holder == target) {
            target->addThunk(thunk.get());
        } else if (!hasStayed) {
            holder->addThunk(thunk.get());
            holder->removeRange(thunk->address());
            m_groups.erase(record->start);
            record->name = nullptr; // the scope says from now on
        }
    }
}

// --- Rivals

MergeSide SymbolTable::sideOf(RangeRecord const& record) const {
    return record.isSymbol() ? record.side() : record.scope.load(std::memory_order_acquire)->mergeSide();
}

/// The first thing at a key, in list order, that is the same as a newcomer; null if there is none.
RangeRecord* SymbolTable::findRival(Position at, MergeSide const& newcomer, unsigned int& flags) {
    RangeRecord* const first = m_keys.records(at);
    if (first == nullptr || newcomer.name == nullptr) {
        return nullptr;
    }
    MergeNext const next = nextOf(at);
    auto const decide = [&](RangeRecord const& rival) {
        MergeSide const mine = sideOf(rival);
        return mine.name != nullptr ? m_makers[rival.maker]->mergeRule(mine, newcomer, next)
                                    : static_cast<unsigned int>(merge_Different);
    };
    if (KeyGroup* const group = groupAt(first->start)) {
        return group->findRival(newcomer, decide, flags);
    }
    std::size_t count = 0;
    for (RangeRecord* rival = first; rival != nullptr; rival = rival->next) {
        flags = decide(*rival);
        if (flags != merge_Different) {
            return rival;
        }
        if (++count == KeyGroup::k_least) {
            return makeGroup(at).findRival(newcomer, decide, flags);
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
    return {m_keys.address(ahead), last != nullptr ? sideOf(*last).name : nullptr};
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

bool SymbolTable::changesAnything(RangeRecord const& rival, unsigned int flags, Newcomer const& newcomer) const {
    MergeSide const mine = sideOf(rival);
    bool const takesName = (flags & merge_TakeName) != 0 && std::strcmp(mine.name, newcomer.side.name) != 0;
    bool const takesData = (flags & merge_TakeSymbolData) != 0 &&
                           (mine.kind != newcomer.side.kind || mine.visibility != newcomer.side.visibility);
    return takesName || takesData || (flags & (merge_ReplaceEnd | merge_ReplaceScope)) != 0;
}

/// What is decided about a rival is done to it: it stays in the table, as it is or changed.
void SymbolTable::absorb(RangeRecord* rival, unsigned int flags, Newcomer const& newcomer) {
    if (!changesAnything(*rival, flags, newcomer)) {
        return;
    }
    bool const movesEnd = (flags & (merge_ReplaceEnd | merge_ReplaceScope)) != 0;
    bool const takesRanges = (flags & merge_ReplaceEnd) != 0 && newcomer.scope != nullptr;
    Scope* const scope = takesRanges || !rival->isSymbol() ? scopeOf(*rival) : nullptr;
    RangeList const before = scope != nullptr ? scope->ranges() : RangeList();
    if (scope != nullptr && movesEnd && (flags & merge_ReplaceEnd) == 0) {
        removeOtherRanges(*scope, before); // while the rival is alive at the keys behind it
    }
    Records known; // crowded keys know a record by what it was
    if (KeyGroup* const group = groupAt(rival->start)) {
        known.push_back(rival);
    }
    for (std::size_t i = 0; i < before.size(); ++i) {
        KeyGroup const* const group = before[i].start != rival->start ? groupAt(before[i].start) : nullptr;
        if (RangeRecord* const other = group != nullptr ? group->ofScope(scope) : nullptr) {
            known.push_back(other);
        }
    }
    Position const at = m_keys.lowerBound(rival->start);
    RangeRecord* const previous =
        !known.empty() && known.front() == rival ? groupAt(rival->start)->previous(rival) : previousOf(at, rival);
    for (RangeRecord* const record : known) {
        groupAt(record->start)->leave(record);
    }
    try {
        unsigned long long const oldEnd = rival->end;
        absorbSymbol(*rival, flags, newcomer);
        if (movesEnd) {
            moveEnd(rival, previous, oldEnd, flags, newcomer);
        }
        for (RangeRecord* const record : known) {
            if (record != rival || !movesEnd) { // else it has come in anew
                groupAt(record->start)->enter(record, sideOf(*record), *m_makers[record->maker]);
            }
        }
    } catch (...) {
        for (RangeRecord const* const record : known) {
            m_groups.erase(record->start);
        }
        throw;
    }
}

/// Its scope too, if others have it already; and its end, so that a scope which is made meanwhile has either.
void SymbolTable::absorbSymbol(RangeRecord& rival, unsigned int flags, Newcomer const& newcomer) {
    std::lock_guard<std::mutex> const guard(m_scopesLock); // scopes are made of these
    if (Scope* const scope = rival.scope.load(std::memory_order_acquire)) {
        scope->takeIn(newcomer.side, flags, newcomer.scope);
    }
    if (rival.isSymbol()) {
        MergeSide taken = rival.side();
        if ((flags & merge_TakeName) != 0) {
            taken.name = newcomer.side.name;
        }
        if ((flags & merge_TakeSymbolData) != 0) {
            taken.visibility = newcomer.side.visibility;
            taken.kind = newcomer.side.kind;
        }
        rival.take(taken);
    }
    if ((flags & (merge_ReplaceEnd | merge_ReplaceScope)) != 0) {
        rival.end = newcomer.end;
    }
    if ((flags & merge_ReplaceEnd) != 0 && newcomer.scope != nullptr) {
        rival.name = nullptr; // there may be several ranges: the scope says from now on
    }
}

/// Puts a rival in its place anew, and takes out the keys that its old end alone has kept.
void SymbolTable::moveEnd(RangeRecord* rival, RangeRecord* previous, unsigned long long oldEnd, unsigned int flags,
                          Newcomer const& newcomer) {
    unlink(m_keys.lowerBound(rival->start), previous, rival);
    if ((flags & merge_ReplaceEnd) != 0 && oldEnd != rival->start) {
        m_keys.eraseDeserted(rival->start + 1, oldEnd);
    }
    rival->order = newcomer.order;
    link(m_keys.lowerBound(rival->start), rival); // erased keys have moved it
}

/// Takes a scope's ranges behind its first out of the table: where each of them starts, what stands first.
void SymbolTable::removeOtherRanges(Scope& scope, RangeList const& ranges) {
    for (std::size_t i = 1; i < ranges.size(); ++i) {
        Position const at = m_keys.lowerBound(ranges[i].start);
        if (m_keys.isEnd(at) || m_keys.address(at) != ranges[i].start) {
            continue;
        }
        RangeRecord* record = m_keys.records(at);
        RangeRecord* previous = nullptr;
        for (; record != nullptr && record->scope != &scope; record = record->next) {
            previous = record;
        }
        // It may be covered by one that started earlier, and is a reference there alone.
        auto const covers = [&](RangeRecord const& other) { return other.scope == &scope && other.end > record->end; };
        if (record == nullptr || m_keys.anySpanning(at, covers)) {
            continue;
        }
        if (KeyGroup* const group = groupAt(record->start)) {
            group->leave(record);
        }
        unlink(at, previous, record);
        m_keys.eraseDeserted(record->start, record->end);
    }
}

// --- Lists

/// Behind all that end later or at the same place.
void SymbolTable::link(Position at, RangeRecord* record) {
    RangeRecord* head = m_keys.records(at);
    RangeRecord* previous = nullptr;
    if (enterGroup(record)) {
        previous = groupAt(record->start)->previous(record);
    } else {
        for (RangeRecord* r = head; r != nullptr && r->end >= record->end; r = r->next) {
            previous = r;
        }
    }
    RangeRecord*& link = previous != nullptr ? previous->next : head;
    record->next = link;
    link = record;
    m_keys.setRecords(at, head);
}

void SymbolTable::unlink(Position at, RangeRecord* previous, RangeRecord* record) {
    RangeRecord* head = m_keys.records(at);
    (previous != nullptr ? previous->next : head) = record->next;
    m_keys.setRecords(at, head);
}

RangeRecord* SymbolTable::previousOf(Position at, RangeRecord const* record) const {
    RangeRecord* previous = nullptr;
    for (RangeRecord* r = m_keys.records(at); r != record; r = r->next) {
        previous = r;
    }
    return previous;
}

KeyGroup* SymbolTable::groupAt(unsigned long long address) const {
    auto const found = m_groups.empty() ? m_groups.end() : m_groups.find(address);
    return found != m_groups.end() ? found->second.get() : nullptr;
}

KeyGroup& SymbolTable::makeGroup(Position at) {
    auto group = std::make_unique<KeyGroup>();
    for (RangeRecord* record = m_keys.records(at); record != nullptr; record = record->next) {
        group->enter(record, sideOf(*record), *m_makers[record->maker]);
    }
    return *(m_groups[m_keys.address(at)] = std::move(group));
}

/// False where there is no group, or no memory for it.
bool SymbolTable::enterGroup(RangeRecord* record) {
    KeyGroup* const group = groupAt(record->start);
    try {
        if (group != nullptr) {
            group->enter(record, sideOf(*record), *m_makers[record->maker]);
        }
        return group != nullptr;
    } catch (std::bad_alloc const&) {
        m_groups.erase(record->start);
        return false;
    }
}

} // namespace ORV_3_30
