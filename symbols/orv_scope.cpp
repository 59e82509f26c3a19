// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Scopes: ranges, thunks and a table, each made when it is needed; deep nests are taken down without recursion.
#include "symbols/orv_scope.h"

#include "core/orv_trace.h"
#include "symbols/orv_symboltable.h"

namespace ORV_3_30 {

Scope* asScope(SymbolScope* scope) { return scope; }

SymbolScope* createSymbolScope(IFileFormatLoader& loader, char const* name, unsigned long long address, Scope* parent,
                               symbol_visibility_t visibility, symbol_kind_t kind) {
    return new SymbolScope(&loader, SymbolName::copied(name), address, parent, visibility, kind);
}

Scope::Scope(IFileFormatLoader* loader, Scope* parent)
    : m_parent(parent), m_root(parent != nullptr ? parent->m_root : this), m_loader(loader) {}

Scope::~Scope() {
    for (SymMgrObjectPtr<Thunk> const& thunk : Scope::thunks()) {
        if (thunk->scope() == this) { // a client may hold it longer
            thunk->setScope(nullptr);
        }
    }
    takeDown(m_extras.take().release());
}

/// Scopes lie in the tables of scopes, as deep as a file likes: those inside wait for their turn.
void Scope::takeDown(Extras* extras) {
    static thread_local Extras* waiting = nullptr;
    static thread_local bool isAtWork = false;
    if (extras == nullptr) {
        return;
    }
    extras->nextToGo = waiting;
    waiting = extras;
    if (isAtWork) {
        return;
    }
    isAtWork = true;
    while (waiting != nullptr) {
        std::unique_ptr<Extras> const next(waiting);
        waiting = next->nextToGo;
    }
    isAtWork = false;
}

void Scope::replaceRanges(RangeList ranges) {
    Extras& own = extras();
    own.replacedRanges.push_back(std::make_unique<RangeList>(std::move(ranges)));
    m_replacedRanges.store(own.replacedRanges.back().get(), std::memory_order_release);
}

bool Scope::removeRange(unsigned long long start) {
    RangeList fewer = ownRanges();
    bool const isFound = fewer.remove(start);
    if (isFound) {
        replaceRanges(std::move(fewer));
    }
    return isFound;
}

bool Scope::holds(unsigned long long address) const {
    RangeList const& own = ownRanges();
    for (std::size_t i = own.firstFrom(address); i < own.size() && own[i].start <= address; ++i) {
        if (address < own[i].end || (own[i].start == address && own[i].end == address)) {
            return true;
        }
    }
    return false;
}

ISymbolTable* Scope::symbolTable() { return &ownTable(); }

SymbolTable& Scope::ownTable() {
    Extras& own = extras();
    auto& table = own.table.get(own.lock, [&] {
        SymMgrObjectPtr<ISymbolTable> const fresh(new SymbolTable(this, &own.lock));
        return std::make_unique<SymMgrObjectPtr<ISymbolTable>>(fresh);
    });
    return static_cast<SymbolTable&>(*table);
}

SymbolTable* Scope::madeTable() const {
    Extras const* const own = m_extras.made();
    auto const* const table = own != nullptr ? own->table.made() : nullptr;
    return table != nullptr ? static_cast<SymbolTable*>(table->get()) : nullptr;
}

void Scope::scopesAt(unsigned long long address, symbol_kind_t mask, std::vector<Scope*>& out) {
    if (ensureKinds(mask) == status_Ok && madeTable() != nullptr) {
        madeTable()->scopesAt(address, mask, out);
    }
}

ThunkList const& Scope::thunks() {
    static ThunkList const none;
    Extras const* const own = m_extras.made();
    return own != nullptr ? own->thunks : none;
}

void Scope::addThunk(Thunk* thunk) {
    SymMgrObjectPtr<Thunk> const held(thunk);
    if (thunkAt(thunk->address()) == nullptr) {
        extras().thunks.push_back(held);
        thunk->setScope(this);
    }
}

Thunk* Scope::thunkAt(unsigned long long address) {
    for (SymMgrObjectPtr<Thunk> const& thunk : thunks()) {
        if (thunk->contains(address)) {
            return thunk.get();
        }
    }
    return nullptr;
}

bool Scope::rangeAt(unsigned long long& start, unsigned long long& end, unsigned long long address) {
    RangeList::Range const* const range = ownRanges().floor(address);
    if (range == nullptr || address >= range->end) {
        return false;
    }
    start = range->start;
    end = range->end;
    return true;
}

MergeSide Scope::mergeSide() {
    ISymbol* const own = symbol();
    if (own == nullptr) {
        return {nullptr, firstStart(), lastEnd(), hasSeveralRanges(), symbol_visibility_Local, symbol_kind_Other};
    }
    return {own->name(), firstStart(), lastEnd(), hasSeveralRanges(), own->visibility(), own->kind()};
}

unsigned int Scope::mergeDecision(Scope& other, unsigned long long nextKey, Scope* nextScope) {
    MergeSide const mine = mergeSide();
    MergeSide const theirs = other.mergeSide();
    if (mine.name == nullptr || theirs.name == nullptr) {
        return merge_Different;
    }
    return maker().mergeRule(mine, theirs, {nextKey, nextScope != nullptr ? nextScope->mergeSide().name : nullptr});
}

status_t Scope::ensureKinds(unsigned int mask) {
    if ((mask & ~m_loadedKinds.load(std::memory_order_acquire)) == 0) {
        return status_Ok;
    }
    ILock* const lock = rootLoadLock();
    LockGuard guard(lock);
    // Kinds that this very thread is loading further up count as loaded. Without a lock nothing tells whose they are.
    unsigned int notKept = 0;
    unsigned int& kindsInLoad = lock != nullptr ? m_kindsInLoad : notKept;
    unsigned int const missing = mask & ~(m_loadedKinds.load(std::memory_order_acquire) | kindsInLoad);
    if (missing == 0) {
        return status_Ok;
    }
    struct InLoad {
        unsigned int& kinds;
        unsigned int const outer = kinds;
        ~InLoad() { kinds = outer; }
    } const inLoad{kindsInLoad};
    kindsInLoad |= missing;
    status_t const status = loadKinds(missing);
    m_loadedKinds.fetch_or(missing, std::memory_order_release);
    return status;
}

/// Asks the table once the kinds are there; status_False without an answer.
template <typename Answer, typename Ask> status_t Scope::answer(Answer& out, unsigned int mask, Ask const& ask) {
    out = nullptr;
    status_t const status = ensureKinds(mask);
    if (status != status_Ok) {
        return status;
    }
    if (SymbolTable* const table = madeTable()) {
        ask(*table);
    }
    return out ? status_Ok : status_False;
}

status_t Scope::symbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start,
                             unsigned long long end, symbol_kind_t mask) {
    auto const kinds = mask != 0 ? mask : static_cast<symbol_kind_t>(m_loadedKinds.load());
    return answer(out, kinds, [&](SymbolTable& table) { table.symbolRanges(out, start, end, kinds); });
}

status_t Scope::symbolRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, unsigned long long address, symbol_kind_t mask,
                                     ISymbolChooser* resolver) {
    return answer(out, mask, [&](SymbolTable& table) { table.symbolRangeByAddress(out, address, mask, resolver); });
}

status_t Scope::nonOverlappedSymbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start,
                                          unsigned long long end, symbol_kind_t mask, ISymbolChooser* resolver) {
    return answer(out, mask,
                  [&](SymbolTable& table) { table.nonOverlappedSymbolRanges(out, start, end, mask, resolver); });
}

std::shared_ptr<FunctionPieces const> Scope::functionPieces() {
    bool const isLoaded = ensureKinds(symbol_kind_Function) == status_Ok && madeTable() != nullptr;
    return isLoaded ? madeTable()->functionPieces() : nullptr;
}

SymbolScope::SymbolScope(IFileFormatLoader* loader, SymbolName name, unsigned long long address, Scope* parent,
                         symbol_visibility_t visibility, symbol_kind_t kind)
    : Scope(loader, parent), m_symbol(new Symbol(loader, name, address, this, visibility, kind, k_noCompUnit)) {}

SymbolScope::SymbolScope(IFileFormatLoader* loader, Scope* parent, Symbol* symbol)
    : Scope(loader, parent), m_symbol(symbol) {
    if (ORV_ASSERT(m_symbol, "m_symbol != NULL")) {
        m_symbol->setScope(this);
    }
}

SymbolScope::~SymbolScope() { dropSymbol(); }

void SymbolScope::setSymbol(Symbol* symbol) {
    SymMgrObjectPtr<Symbol> const fresh(symbol);
    dropSymbol();
    m_symbol = fresh;
    if (m_symbol) {
        m_symbol->setScope(this);
    }
}

/// A client that still holds the symbol keeps its name, and loses what leads back to the bank.
void SymbolScope::dropSymbol() {
    unsigned int count = 0;
    if (m_symbol) {
        m_symbol->refCount(count);
    }
    if (count > 1) {
        m_symbol->leaveScope();
    }
}

} // namespace ORV_3_30
