// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Lookup: one search for the key, then the walk over what is alive there, which settles who wins.
#include "symbols/orv_symboltable.h"

#include "core/orv_trace.h"
#include "symbols/orv_symbolrange.h"
#include "symbols/orv_symboltable_iterators.h"

#include <algorithm>
#include <mutex>

namespace ORV_3_30 {
namespace {

/// A record stands at an address in its key's stretch until it ends; a label to the stretch's end.
bool isAliveAt(RangeRecord const& record, unsigned long long address) {
    return record.end > address || record.isPoint();
}

/// Whether a candidate, which stands behind best in the list, is the better one at an address.
bool isBetter(SymbolTable const& table, RangeRecord const& candidate, RangeRecord const& best,
              unsigned long long address) {
    SymbolTable::Rank mine{};
    SymbolTable::Rank theirs{};
    if (!table.rankOf(candidate, mine) || !table.rankOf(best, theirs)) {
        return false;
    }
    if (int const byRank = mine.compare(theirs)) {
        return byRank > 0;
    }
    // The innermost wins, but an inlined body does not hide a plain symbol.
    bool const isHiddenInline = mine.isInline && !theirs.isInline;
    return candidate.start > best.start && candidate.start <= address && !isHiddenInline;
}

/// An iterator that stands on nothing is not handed out.
void handOut(SymMgrObjectPtr<SymbolRangeIterator>& out, SymbolRangeIterator* iterator) {
    out = iterator;
    if (out && !out->current()) {
        out = nullptr;
    }
}

} // namespace

SymbolTable::SymbolTable(Scope* scope, ILock* countLock) : SymMgrObject(countLock), m_scope(scope) {}

SymbolTable::~SymbolTable() = default;

SymMgrObjectPtr<ISymbolTable> ISymbolTable::create(Scope* scope) {
    return SymMgrObjectPtr<ISymbolTable>(new SymbolTable(scope, nullptr));
}

Scope* SymbolTable::scopeOf(RangeRecord const& record) const {
    Scope* scope = record.scope.load(std::memory_order_acquire);
    if (scope != nullptr) {
        return scope;
    }
    std::lock_guard<std::mutex> const guard(m_scopesLock);
    scope = record.scope.load(std::memory_order_acquire);
    if (scope == nullptr) {
        SymMgrObjectPtr<Scope> const made(m_makers[record.maker]->makeScope(record, m_scope));
        scope = made.get();
        m_scopes.emplace_back(scope);
        if (scope->ranges().empty()) {
            scope->addRange(record.start, record.end);
        }
        const_cast<RangeRecord&>(record).scope.store(scope, std::memory_order_release);
    }
    return scope;
}

bool SymbolTable::kindOf(RangeRecord const& record, symbol_kind_t& kind) const {
    if (record.isSymbol()) {
        kind = record.symbolKind();
        return true;
    }
    ISymbol* const symbol = record.scope.load(std::memory_order_acquire)->symbol();
    if (symbol != nullptr) {
        kind = symbol->kind();
    }
    return symbol != nullptr;
}

int SymbolTable::Rank::compare(Rank const& other) const {
    if (hasUnit != other.hasUnit) {
        return hasUnit ? 1 : -1;
    }
    if (priority != other.priority) {
        return priority < other.priority ? 1 : -1;
    }
    return visibility == other.visibility ? 0 : visibility > other.visibility ? 1 : -1;
}

bool SymbolTable::rankOf(RangeRecord const& record, Rank& out) const {
    if (record.isSymbol()) {
        IScopeMaker const& maker = *m_makers[record.maker];
        out = {maker.givesUnits(), symbolPriorityByKind(record.symbolKind()), record.symbolVisibility(),
               maker.givesInlines()};
        return true;
    }
    Scope* const scope = record.scope.load(std::memory_order_acquire);
    ISymbol* const symbol = scope->symbol();
    if (symbol == nullptr) {
        return false;
    }
    ICompUnitDetails* unit = nullptr;
    out = {symbol->compUnitDetails(unit) == status_Ok && unit != nullptr, symbolPriorityByKind(symbol->kind()),
           symbol->visibility(), scope->inlineInstance() != nullptr};
    return true;
}

// --- Looking up

/// The records alive at the last key at or below an address, in list order.
SymbolTable::Records SymbolTable::collectAlive(unsigned long long address) const {
    Records found;
    Position const at = m_keys.floor(address);
    if (m_keys.isEnd(at)) {
        return found;
    }
    for (RangeRecord* record = m_keys.records(at); record != nullptr; record = record->next) {
        found.push_back(record);
    }
    std::size_t const own = found.size();
    m_keys.anySpanning(at, [&](RangeRecord& record) {
        found.push_back(&record);
        return false;
    });
    if (found.size() != own) {
        sortAsList(at, found);
    }
    return found;
}

/// The greatest end first. Of equal ends, who made a key stands first there and at the keys that were made behind it
/// later, up to the next one that there was; the others stand as they came.
void SymbolTable::sortAsList(Position at, Records& records) const {
    auto const endOf = [](RangeRecord const* record) { return record->end.load(std::memory_order_relaxed); };
    std::sort(records.begin(), records.end(), InListOrder());
    for (auto begin = records.begin(); begin != records.end();) {
        auto const end = std::find_if(begin, records.end(), [&](RangeRecord* r) { return endOf(r) != endOf(*begin); });
        bool const startTogether = std::all_of(begin, end, [&](RangeRecord* r) { return r->start == (*begin)->start; });
        if (!startTogether) {
            auto const behind = std::stable_partition(begin, end, [&](RangeRecord* r) { return isInFront(*r, at); });
            std::reverse(begin, behind); // the last who came to stand in front is the first
        }
        begin = end;
    }
}

/// True if a record made its key, and no key between that and another was there before it.
bool SymbolTable::isInFront(RangeRecord const& record, Position at) const {
    Position const own = m_keys.lowerBound(record.start);
    return m_keys.born(own) == record.order && m_keys.oldestBehind(own, at) > record.order;
}

SymbolTable::Records SymbolTable::recordsFrom(unsigned long long key) const {
    std::shared_lock<Guard> const guard(m_guard);
    Records found;
    Position const at = m_keys.lowerBound(key);
    if (!m_keys.isEnd(at) && m_keys.address(at) == key) {
        for (RangeRecord* record = m_keys.records(at); record != nullptr; record = record->next) {
            found.push_back(record);
        }
    }
    return found;
}

SymbolTable::Records SymbolTable::recordsAlive(unsigned long long key) const {
    std::shared_lock<Guard> const guard(m_guard);
    return collectAlive(key);
}

SymbolTable::Records SymbolTable::candidates(unsigned long long address, symbol_kind_t mask,
                                             unsigned long long key) const {
    std::shared_lock<Guard> const guard(m_guard);
    return collectCandidates(address, mask, key);
}

SymbolTable::Records SymbolTable::collectCandidates(unsigned long long address, symbol_kind_t mask,
                                                    unsigned long long key) const {
    Records found = collectAlive(key);
    auto kept = found.begin();
    for (RangeRecord* const record : found) {
        symbol_kind_t kind{};
        if (!isAliveAt(*record, address)) {
            continue;
        }
        if (!ORV_ASSERT(kindOf(*record, kind), "symbol != NULL")) {
            break; // the choice ends there
        }
        if ((kind & mask) != 0) {
            *kept++ = record;
        }
    }
    found.erase(kept, found.end());
    return found;
}

/// key: of the list that candidates come from. The client may choose any symbol that stands there.
RangeRecord const* SymbolTable::chooseByClient(Records const& found, ISymbolChooser& resolver,
                                               unsigned long long key) const {
    if (found.size() < 2) {
        return found.empty() ? nullptr : found.front();
    }
    SymMgrObjectPtr<SymbolByAddrIterator> const iterator(new SymbolByAddrIterator(*this, found));
    SymMgrObjectPtr<ISymbol> const chosen = resolver.choose(*iterator);
    if (!chosen) {
        return nullptr;
    }
    for (RangeRecord const* const record : recordsAlive(key)) {
        Scope* const scope = record->scope.load(std::memory_order_acquire); // who has the symbol has made its scope
        if (scope != nullptr && scope->symbol() == chosen.get()) {
            return record;
        }
    }
    return nullptr;
}

void SymbolTable::scopesAt(unsigned long long address, symbol_kind_t mask, std::vector<Scope*>& out) const {
    for (RangeRecord const* record : recordsAlive(address)) {
        symbol_kind_t kind{};
        bool const holds =
            record->isPoint() ? record->start == address : record->start <= address && address < record->end;
        if (holds && kindOf(*record, kind) && (kind & mask) != 0) {
            out.push_back(scopeOf(*record));
        }
    }
}

RangeRecord const* SymbolTable::chooseRecord(unsigned long long address, symbol_kind_t mask, unsigned long long key,
                                             ISymbolChooser* resolver) const {
    if (resolver != nullptr) {
        return chooseByClient(candidates(address, mask, key), *resolver, key);
    }
    std::shared_lock<Guard> const guard(m_guard);
    RangeRecord const* best = nullptr;
    for (RangeRecord const* const record : collectCandidates(address, mask, key)) {
        best = best == nullptr || isBetter(*this, *record, *best, address) ? record : best;
    }
    return best;
}

bool SymbolTable::floorKey(unsigned long long address, unsigned long long& key) const {
    std::shared_lock<Guard> const guard(m_guard);
    Position const at = m_keys.floor(address);
    if (m_keys.empty()) {
        return false;
    }
    key = m_keys.address(m_keys.isEnd(at) ? m_keys.begin() : at);
    return true;
}

bool SymbolTable::keyAfter(unsigned long long address, unsigned long long& key) const {
    return address != ~0ULL && keyFrom(address + 1, key);
}

bool SymbolTable::keyFrom(unsigned long long address, unsigned long long& key) const {
    std::shared_lock<Guard> const guard(m_guard);
    Position const at = m_keys.lowerBound(address);
    if (m_keys.isEnd(at)) {
        return false;
    }
    key = m_keys.address(at);
    return true;
}

std::uint32_t SymbolTable::arrivals() const {
    std::shared_lock<Guard> const guard(m_guard);
    return m_arrivals;
}

std::shared_ptr<FunctionPieces const> SymbolTable::functionPieces() {
    std::lock_guard<std::mutex> const guard(m_piecesLock);
    if (!m_pieces || m_pieces->version() != arrivals()) {
        m_pieces = std::make_shared<FunctionPieces const>(*this);
    }
    return m_pieces;
}

void SymbolTable::symbolRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, unsigned long long address,
                                       symbol_kind_t mask, ISymbolChooser* resolver) {
    RangeRecord const* const winner = chooseRecord(address, mask, address, resolver);
    out = winner != nullptr ? new SymbolRange(winner->start, winner->end, scopeOf(*winner), nullptr) : nullptr;
}

void SymbolTable::symbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start,
                               unsigned long long end, symbol_kind_t mask) {
    unsigned long long first = 0;
    bool const isAsked = start <= end && floorKey(start, first);
    out = nullptr;
    handOut(out, isAsked ? new SymbolRangesIterator(*this, first, start, end, mask) : nullptr);
}

void SymbolTable::nonOverlappedSymbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start,
                                            unsigned long long end, symbol_kind_t mask, ISymbolChooser* resolver) {
    unsigned long long first = 0;
    bool const isAsked = start <= end && floorKey(start, first);
    out = nullptr;
    handOut(out, isAsked ? new NonOverlappedSymbolRangesIterator(*this, first, start, end, mask, resolver) : nullptr);
}

} // namespace ORV_3_30
