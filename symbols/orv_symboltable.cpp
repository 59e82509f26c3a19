// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "symbols/orv_symboltable.h"

#include "core/orv_trace.h"
#include "symbols/orv_symbolrange.h"
#include "symbols/orv_symboltable_iterators.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <typeinfo>

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
    if (mine.hasUnit != theirs.hasUnit) {
        return mine.hasUnit;
    }
    if (mine.priority != theirs.priority) {
        return mine.priority < theirs.priority;
    }
    if (mine.visibility != theirs.visibility) {
        return mine.visibility > theirs.visibility;
    }
    // The innermost wins, but an inlined body does not hide a plain symbol.
    bool const isHiddenInline = mine.isInline && !theirs.isInline;
    return candidate.start > best.start && candidate.start <= address && !isHiddenInline;
}

/// The walk that settles who wins, fed with the alive records in list order.
class Choice {
public:
    Choice(SymbolTable const& table, unsigned long long address, symbol_kind_t mask)
        : m_table(table), m_address(address), m_mask(mask) {}

    /// False if the choice ends here, with the best so far.
    bool offer(RangeRecord const& record) {
        if (!isAliveAt(record, m_address)) {
            return true;
        }
        symbol_kind_t kind{};
        if (!ORV_ASSERT(m_table.kindOf(record, kind), "symbol != NULL")) {
            return false;
        }
        if ((kind & m_mask) != 0 && (m_best == nullptr || isBetter(m_table, record, *m_best, m_address))) {
            m_best = &record;
        }
        return true;
    }
    RangeRecord const* best() const { return m_best; }

private:
    SymbolTable const& m_table;
    unsigned long long m_address;
    symbol_kind_t m_mask;
    RangeRecord const* m_best = nullptr;
};

/// True for a scope that goes by the rule of Scope::mergeDecision, which looks at nothing else.
bool isPlain(Scope const& scope) { return typeid(scope) == typeid(SymbolScope); }

} // namespace

/// The symbols of a format's own table, which go by name and range alone.
class SymbolTable::RawScopeMaker final : public IScopeMaker {
public:
    explicit RawScopeMaker(IFileFormatLoader* loader) : m_loader(loader) {}

    Scope* makeScope(RangeRecord const& record, Scope* parent) override {
        return new SymbolScope(m_loader, SymbolName::borrowed(record.name), record.start, parent,
                               static_cast<symbol_visibility_t>(record.visibility.load()),
                               static_cast<symbol_kind_t>(record.kind.load()));
    }
    unsigned int mergeDecision(MergeSide const& mine, MergeSide const& other, MergeNext const& /*next*/) override {
        return plainMergeRule(mine, other);
    }
    bool givesUnits() const override { return false; }
    bool givesInlines() const override { return false; }
    IFileFormatLoader* loader() const { return m_loader; }

private:
    IFileFormatLoader* m_loader;
};

SymbolTable::SymbolTable(Scope* scope, ILock* countLock) : SymMgrObject(countLock), m_scope(scope) {}

SymbolTable::~SymbolTable() = default;

IScopeMaker& SymbolTable::rawMakerOf(IFileFormatLoader* loader) {
    for (auto const& maker : m_rawMakers) {
        if (maker->loader() == loader) {
            return *maker;
        }
    }
    m_rawMakers.push_back(std::make_unique<RawScopeMaker>(loader));
    return *m_rawMakers.back();
}

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

SymMgrObjectPtr<ISymbolTable> ISymbolTable::create(Scope* scope) {
    return SymMgrObjectPtr<ISymbolTable>(new SymbolTable(scope, nullptr));
}

// --- Adding

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

bool SymbolTable::addRange(unsigned long long start, unsigned long long end, Scope* scope) {
    // A scope that is refused goes with this reference, unless somebody else holds one.
    SymMgrObjectPtr<Scope> const held(scope);
    std::unique_lock<Guard> const guard(m_guard);
    m_holdsDeciders |= scope != nullptr && !isPlain(*scope);
    if (scope == nullptr) {
        insertRange(start, end, nullptr, m_arrivals++);
        return false;
    }
    keep(scope); // first: once a record refers to it, nothing may fail
    RangeRecord const* const record = insertRange(start, end, scope, m_arrivals++);
    bool const isTaken = record != nullptr && record->scope == scope;
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
    m_holdsDeciders |= !isPlain(*scope);
    bool hasStayed = false;
    Scope* target = nullptr;
    // A merge may change the scope's ranges while they go in.
    std::vector<RangeList::Range> ranges;
    for (std::size_t i = 0; i < scope->ranges().size(); ++i) {
        ranges.push_back(scope->ranges()[i]);
    }
    keep(scope); // first: once a record refers to it, nothing may fail
    auto const noteStay = [&](Scope* holder) { hasStayed |= holder == scope; };
    for (RangeList::Range const& range : ranges) {
        RangeRecord const* const record = insertRange(range.start, range.end, scope, m_arrivals++);
        if (record == nullptr) {
            continue;
        }
        Scope* const holder = scopeOf(*record);
        noteStay(holder);
        if (target != scope) {
            target = holder;
        }
    }
    Scope* const thunkOwner = target != nullptr ? target : scope;
    ThunkList const thunks = scope->thunks();
    for (SymMgrObjectPtr<Thunk> const& thunk : thunks) {
        RangeRecord* const record =
            insertRange(thunk->address(), thunk->address() + thunk->size(), thunkOwner, m_arrivals++);
        if (record == nullptr) {
            continue;
        }
        Scope* const holder = scopeOf(*record);
        noteStay(holder);
        if (thunkOwner != scope && holder == thunkOwner) {
            thunkOwner->addThunk(thunk.get());
        } else if (!hasStayed) {
            holder->addThunk(thunk.get());
            holder->removeRange(thunk->address());
            record->name = nullptr; // the scope says from now on
        }
    }
    if (!hasStayed) {
        drop(scope);
    }
    return hasStayed;
}

RangeRecord* SymbolTable::insertRange(unsigned long long start, unsigned long long end, Scope* scope,
                                      std::uint32_t order) {
    Position at = m_keys.lowerBound(start);
    if (!m_keys.isEnd(at) && m_keys.address(at) == start) {
        return insertBeside(at, end, scope, order);
    }
    at = m_keys.insert(at, start, order);
    return scope != nullptr ? makeRecord(at, end, scope, order) : nullptr;
}

RangeRecord* SymbolTable::makeRecord(Position at, unsigned long long end, Scope* scope, std::uint32_t order) {
    RangeRecord* const record = m_pool.make(m_keys.address(at), end, nullptr, scope, nullptr, std::uint64_t{0}, order,
                                            std::uint8_t{0}, std::uint8_t{0}, std::uint8_t{0});
    link(at, record);
    return record;
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
    if (record.isDeferred()) {
        kind = static_cast<symbol_kind_t>(record.kind.load());
        return true;
    }
    ISymbol* const symbol = record.scope.load(std::memory_order_acquire)->symbol();
    if (symbol != nullptr) {
        kind = symbol->kind();
    }
    return symbol != nullptr;
}

bool SymbolTable::rankOf(RangeRecord const& record, Rank& out) const {
    if (record.isDeferred()) {
        IScopeMaker const& maker = *m_makers[record.maker];
        out = {maker.givesUnits(), symbolPriorityByKind(static_cast<symbol_kind_t>(record.kind.load())),
               static_cast<symbol_visibility_t>(record.visibility.load()), maker.givesInlines()};
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

/// Behind all that end later or at the same place.
void SymbolTable::link(Position at, RangeRecord* record) {
    RangeRecord* head = m_keys.records(at);
    if (KeyGroup* const group = groupAt(record->start)) {
        group->link(head, record);
    } else {
        RangeRecord** slot = &head;
        while (*slot != nullptr && (*slot)->end >= record->end) {
            slot = &(*slot)->next;
        }
        record->next = *slot;
        *slot = record;
    }
    m_keys.setRecords(at, head);
    ++m_linked;
}

void SymbolTable::unlink(Position at, RangeRecord* record) {
    RangeRecord* head = m_keys.records(at);
    if (KeyGroup* const group = groupAt(record->start)) {
        group->unlink(head, record);
    } else {
        RangeRecord** slot = &head;
        while (*slot != nullptr && *slot != record) {
            slot = &(*slot)->next;
        }
        if (*slot != nullptr) {
            *slot = record->next;
        }
    }
    m_keys.setRecords(at, head);
}

// --- Looking up

void SymbolTable::collectAlive(Position at, Records& out) const {
    for (RangeRecord* record = m_keys.records(at); record != nullptr; record = record->next) {
        out.push_back(record);
    }
    std::size_t const own = out.size();
    m_keys.forEachSpanning(at, [&](RangeRecord& record) { out.push_back(&record); });
    if (out.size() != own) {
        sortAsList(at, out);
    }
}

/// The greatest end first. Of equal ends, who made a key stands first there and at the keys that were made behind it
/// later, up to the next one that there was; the others stand as they came.
void SymbolTable::sortAsList(Position at, Records& records) const {
    constexpr auto k_relaxed = std::memory_order_relaxed;
    auto const endOf = [](RangeRecord const* record) { return record->end.load(k_relaxed); };
    std::sort(records.begin(), records.end(), [&](RangeRecord const* a, RangeRecord const* b) {
        return endOf(a) != endOf(b) ? endOf(a) > endOf(b) : a->order < b->order;
    });
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

RangeRecord const* SymbolTable::chooseAt(Position at, unsigned long long address, symbol_kind_t mask) const {
    Choice choice(*this, address, mask);
    Records spanning;
    m_keys.forEachSpanning(at, [&](RangeRecord& record) { spanning.push_back(&record); });
    if (spanning.empty()) {
        // The usual case: the key's own list is all that there is.
        for (RangeRecord const* r = m_keys.records(at); r != nullptr && choice.offer(*r); r = r->next) {
        }
        return choice.best();
    }
    for (RangeRecord* record = m_keys.records(at); record != nullptr; record = record->next) {
        spanning.push_back(record);
    }
    sortAsList(at, spanning);
    for (RangeRecord const* record : spanning) {
        if (!choice.offer(*record)) {
            break;
        }
    }
    return choice.best();
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
    Records found;
    Position const at = m_keys.floor(key);
    if (!m_keys.isEnd(at)) {
        collectAlive(at, found);
    }
    return found;
}

SymbolTable::Records SymbolTable::candidates(unsigned long long address, symbol_kind_t mask,
                                             unsigned long long key) const {
    Records found = recordsAlive(key);
    auto const isNone = [&](RangeRecord const* record) {
        symbol_kind_t kind{};
        return !isAliveAt(*record, address) || !kindOf(*record, kind) || (kind & mask) == 0;
    };
    found.erase(std::remove_if(found.begin(), found.end(), isNone), found.end());
    return found;
}

RangeRecord const* SymbolTable::chooseByClient(Records const& found, ISymbolChooser& resolver) const {
    if (found.size() < 2) {
        return found.empty() ? nullptr : found.front();
    }
    SymMgrObjectPtr<SymbolByAddrIterator> const iterator(new SymbolByAddrIterator(*this, found));
    SymMgrObjectPtr<ISymbol> const chosen = resolver.choose(*iterator);
    for (RangeRecord const* record : found) {
        if (chosen && scopeOf(*record)->symbol() == chosen.get()) {
            return record;
        }
    }
    return nullptr;
}

void SymbolTable::scopesAt(unsigned long long address, symbol_kind_t mask, std::vector<Scope*>& out) const {
    Records found;
    {
        std::shared_lock<Guard> const guard(m_guard);
        Position const at = m_keys.floor(address);
        if (!m_keys.isEnd(at)) {
            collectAlive(at, found);
        }
    }
    for (RangeRecord const* record : found) {
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
        return chooseByClient(candidates(address, mask, key), *resolver);
    }
    std::shared_lock<Guard> const guard(m_guard);
    Position const at = m_keys.floor(key);
    return m_keys.isEnd(at) ? nullptr : chooseAt(at, address, mask);
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

void SymbolTable::symbolRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, unsigned long long address,
                                       symbol_kind_t mask, ISymbolChooser* resolver) {
    RangeRecord const* const winner = chooseRecord(address, mask, address, resolver);
    out = winner != nullptr ? new SymbolRange(winner->start, winner->end, scopeOf(*winner), nullptr) : nullptr;
}

void SymbolTable::symbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start,
                               unsigned long long end, symbol_kind_t mask) {
    out = nullptr;
    unsigned long long first = 0;
    if (start <= end && floorKey(start, first)) {
        out = new SymbolRangesIterator(*this, first, start, end, mask);
        if (!out->current()) {
            out = nullptr;
        }
    }
}

void SymbolTable::nonOverlappedSymbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start,
                                            unsigned long long end, symbol_kind_t mask, ISymbolChooser* resolver) {
    out = nullptr;
    unsigned long long first = 0;
    if (start <= end && floorKey(start, first)) {
        out = new NonOverlappedSymbolRangesIterator(*this, first, start, end, mask, resolver);
        if (!out->current()) {
            out = nullptr;
        }
    }
}

} // namespace ORV_3_30
