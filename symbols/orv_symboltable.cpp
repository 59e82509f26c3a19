#include "symbols/orv_symboltable.h"

#include "core/orv_trace.h"
#include "symbols/orv_symbolrange.h"
#include "symbols/orv_symboltable_iterators.h"

#include <algorithm>
#include <mutex>
#include <typeinfo>

namespace ORV_3_30 {
namespace {

/// A record stands at an address in its key's stretch until it ends; a label to the stretch's end.
bool isAliveAt(RangeRecord const& record, unsigned long long address) {
    return record.end > address || record.isPoint();
}

/// What the choice among overlapping ranges goes by.
struct Rank {
    bool hasUnit;
    int priority;
    symbol_visibility_t visibility;
    bool isInline;
};

/// False for a scope without a symbol.
bool rankOf(RangeRecord const& record, Rank& out) {
    Scope* const scope = record.scope.load(std::memory_order_acquire);
    if (scope == nullptr) {
        out = {false, symbolPriorityByKind(static_cast<symbol_kind_t>(record.rawKind)),
               static_cast<symbol_visibility_t>(record.rawVisibility), false};
        return true;
    }
    ISymbol* const symbol = scope->symbol();
    if (symbol == nullptr) {
        return false;
    }
    ICompUnitDetails* unit = nullptr;
    out = {symbol->compUnitDetails(unit) == status_Ok && unit != nullptr, symbolPriorityByKind(symbol->kind()),
           symbol->visibility(), scope->inlineInstance() != nullptr};
    return true;
}

/// Whether a candidate, which stands behind best in the list, is the better one at an address.
bool isBetter(RangeRecord const& candidate, RangeRecord const& best, unsigned long long address) {
    Rank mine{};
    Rank theirs{};
    if (!rankOf(candidate, mine) || !rankOf(best, theirs)) {
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
    Choice(unsigned long long address, symbol_kind_t mask) : m_address(address), m_mask(mask) {}

    /// False if the choice ends here, with the best so far.
    bool offer(RangeRecord const& record) {
        if (!isAliveAt(record, m_address)) {
            return true;
        }
        symbol_kind_t kind{};
        if (!ORV_ASSERT(SymbolTable::kindOf(record, kind), "symbol != NULL")) {
            return false;
        }
        if ((kind & m_mask) != 0 && (m_best == nullptr || isBetter(record, *m_best, m_address))) {
            m_best = &record;
        }
        return true;
    }
    RangeRecord const* best() const { return m_best; }

private:
    unsigned long long m_address;
    symbol_kind_t m_mask;
    RangeRecord const* m_best = nullptr;
};

/// The order of a key's list: the greatest end first, and equal ends as they came.
void sortAsList(SymbolTable::Records& records) {
    constexpr auto k_relaxed = std::memory_order_relaxed;
    std::sort(records.begin(), records.end(), [](RangeRecord const* a, RangeRecord const* b) {
        unsigned long long const aEnd = a->end.load(k_relaxed);
        unsigned long long const bEnd = b->end.load(k_relaxed);
        return aEnd != bEnd ? aEnd > bEnd : a->order < b->order;
    });
}

/// True for a scope that goes by the rule of Scope::mergeDecision, which looks at nothing else.
bool isPlain(Scope const& scope) { return typeid(scope) == typeid(SymbolScope); }

} // namespace

SymMgrObjectPtr<ISymbolTable> ISymbolTable::create(Scope* scope) {
    return SymMgrObjectPtr<ISymbolTable>(new SymbolTable(scope, nullptr));
}

// --- Adding

/// Makes room for what may have to be kept, so that keeping it can't fail once it is linked.
void SymbolTable::reserveKeep() {
    std::lock_guard<std::mutex> const guard(m_scopesLock);
    if (m_scopes.size() + 1 >= m_scopes.capacity()) {
        m_scopes.reserve(m_scopes.size() * 2 + 4);
    }
}

void SymbolTable::keep(Scope* scope) {
    std::lock_guard<std::mutex> const guard(m_scopesLock);
    m_scopes.emplace_back(scope);
}

bool SymbolTable::addRange(unsigned long long start, unsigned long long end, Scope* scope) {
    // A scope that is refused goes with this reference, unless somebody else holds one.
    SymMgrObjectPtr<Scope> const held(scope);
    std::unique_lock<Guard> const guard(m_guard);
    m_holdsDeciders |= scope != nullptr && !isPlain(*scope);
    reserveKeep();
    RangeRecord const* const record = insertRange(start, end, scope, m_arrivals++);
    bool const isTaken = scope != nullptr && record != nullptr && record->scope == scope;
    if (isTaken) {
        keep(scope);
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
    auto const noteStay = [&](Scope* holder) {
        if (holder == scope && !hasStayed) {
            hasStayed = true;
            keep(scope); // at once: a record refers to it
        }
    };
    for (RangeList::Range const& range : ranges) {
        reserveKeep();
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
        reserveKeep();
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
            record->rawName = nullptr; // no longer as the file has it
        }
    }
    return hasStayed;
}

RangeRecord* SymbolTable::insertRange(unsigned long long start, unsigned long long end, Scope* scope,
                                      std::uint32_t order) {
    Position at = m_keys.lowerBound(start);
    if (!m_keys.isEnd(at) && m_keys.address(at) == start) {
        return insertBeside(at, end, scope, order);
    }
    at = m_keys.insert(at, start);
    return scope != nullptr ? makeRecord(at, end, scope, order) : nullptr;
}

RangeRecord* SymbolTable::insertBeside(Position at, unsigned long long end, Scope* scope, std::uint32_t order) {
    RangeRecord* const first = m_keys.records(at);
    if (scope == nullptr) {
        return first;
    }
    if (first != nullptr) {
        Position const ahead = m_keys.next(at);
        unsigned long long nextKey = ~0ULL;
        Scope* nextScope = nullptr;
        if (!m_keys.isEnd(ahead)) {
            nextKey = m_keys.address(ahead);
            RangeRecord const* last = nullptr;
            for (RangeRecord const* record = m_keys.records(ahead); record != nullptr; record = record->next) {
                last = record;
            }
            nextScope = last != nullptr ? scopeOf(*last) : nullptr;
        }
        for (RangeRecord* rival = first; rival != nullptr; rival = rival->next) {
            unsigned int const flags = scopeOf(*rival)->mergeDecision(*scope, nextKey, nextScope);
            if (flags != merge_Different) {
                absorb(rival, flags, *scope, end);
                return rival;
            }
        }
    }
    return makeRecord(at, end, scope, order);
}

/// What a rival's decision says is done to it: it stays in the table, as it is or with a new end.
void SymbolTable::absorb(RangeRecord* rival, unsigned int flags, Scope& newcomer, unsigned long long end) {
    if (flags == merge_Same) {
        return;
    }
    scopeOf(*rival);
    rival->rawName = nullptr; // no longer as the file has it
    if ((flags & (merge_ReplaceEnd | merge_ReplaceScope)) == 0) {
        rival->scope.load()->merge(newcomer, flags, *rival);
        return;
    }
    unlink(m_keys.lowerBound(rival->start), rival);
    auto const relink = [&](unsigned long long newEnd) {
        rival->end = newEnd;
        rival->order = m_arrivals++;
        link(m_keys.lowerBound(rival->start), rival); // erased keys have moved it
    };
    if ((flags & merge_ReplaceEnd) == 0) {
        removeOtherRanges(*rival->scope);
    } else if (!rival->isPoint()) {
        eraseDeserted(rival->start + 1, rival->end);
    }
    try {
        rival->scope.load()->merge(newcomer, flags, *rival);
    } catch (...) {
        relink(rival->end);
        throw;
    }
    relink(end);
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
    bool isAlive = m_keys.records(at) != nullptr;
    m_keys.forEachSpanning(at, [&](RangeRecord& /*record*/) { isAlive = true; });
    return !isAlive;
}

RangeRecord* SymbolTable::makeRecord(Position at, unsigned long long end, Scope* scope, std::uint32_t order) {
    RangeRecord* const record =
        m_pool.make(m_keys.address(at), end, nullptr, scope, nullptr, order, std::uint8_t{0}, std::uint8_t{0});
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
        SymMgrObjectPtr<Scope> const made(new SymbolScope(
            m_rawLoader, SymbolName::borrowed(record.rawName), record.start, m_scope,
            static_cast<symbol_visibility_t>(record.rawVisibility), static_cast<symbol_kind_t>(record.rawKind)));
        scope = made.get();
        m_scopes.emplace_back(scope);
        scope->addRange(record.start, record.end);
        const_cast<RangeRecord&>(record).scope.store(scope, std::memory_order_release);
    }
    return scope;
}

bool SymbolTable::kindOf(RangeRecord const& record, symbol_kind_t& kind) {
    Scope* const scope = record.scope.load(std::memory_order_acquire);
    ISymbol* const symbol = scope != nullptr ? scope->symbol() : nullptr;
    if (scope == nullptr) {
        kind = static_cast<symbol_kind_t>(record.rawKind);
    } else if (symbol != nullptr) {
        kind = symbol->kind();
    }
    return scope == nullptr || symbol != nullptr;
}

/// Behind all that end later or at the same place.
void SymbolTable::link(Position at, RangeRecord* record) {
    RangeRecord* head = m_keys.records(at);
    RangeRecord** slot = &head;
    while (*slot != nullptr && (*slot)->end >= record->end) {
        slot = &(*slot)->next;
    }
    record->next = *slot;
    *slot = record;
    m_keys.setRecords(at, head);
    ++m_linked;
}

void SymbolTable::unlink(Position at, RangeRecord* record) {
    RangeRecord* head = m_keys.records(at);
    RangeRecord** slot = &head;
    while (*slot != nullptr && *slot != record) {
        slot = &(*slot)->next;
    }
    if (*slot != nullptr) {
        *slot = record->next;
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
        sortAsList(out);
    }
}

RangeRecord const* SymbolTable::chooseAt(Position at, unsigned long long address, symbol_kind_t mask) const {
    Choice choice(address, mask);
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
    sortAsList(spanning);
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
