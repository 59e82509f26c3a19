// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Scopes: stretches of address space with an owner.
///
/// One GlobalScope stands at the root of a module, a SymbolScope for each symbol beneath it, nested
/// ones under those. A scope is made by a loader, gets its ranges and its symbol, and then goes to
/// the table of its parent, which counts it from then on. Its data are written during the load and
/// read after it.
#pragma once

#include "core/orv_once.h"
#include "core/orv_range_list.h"
#include "orv/orv_scope.h"
#include "symbols/orv_scope_maker.h"
#include "symbols/orv_symbol.h"
#include "symbols/orv_thunk.h"

#include <atomic>
#include <memory>
#include <vector>

namespace ORV_3_30 {

class ISourceFile;
struct RangeRecord;

using SymbolRangeIterator = IIterator<SymMgrObjectPtr<ISymbolRange>>;
using ThunkList = std::vector<SymMgrObjectPtr<Thunk>>; ///< In the order of arrival.

class FunctionPieces;
class SymbolTable;

/// An inlined body that holds an address. The name lives as long as the bank.
struct InlinedCall {
    char const* name;
    unsigned long long start; ///< Of its range that holds the address.
    unsigned long long end;
    void const* token; ///< For who made it.
};

/// Where an inlined body is called.
struct CallPlace {
    ISourceFile* file;
    unsigned int line;
    unsigned int column;
    unsigned long long discriminator;
};

class Scope : public SymMgrObject<IScope> {
public:
    Scope(IFileFormatLoader* loader, Scope* parent);
    ~Scope() override;

    IScope* parent() override { return m_parent; }
    ISymbol* symbol() override { return nullptr; }
    IInlineInstance* inlineInstance() override { return nullptr; }
    status_t symbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start, unsigned long long end,
                          symbol_kind_t mask) override;
    status_t symbolRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, unsigned long long address, symbol_kind_t mask,
                                  ISymbolChooser* resolver) override;

    /// The scopes of the ranges that symbolRanges gives for one address, in its order.
    void scopesAt(unsigned long long address, symbol_kind_t mask, std::vector<Scope*>& out);

    /// All of the disjoint walk over the functions; null where there is none.
    std::shared_ptr<FunctionPieces const> functionPieces();

    /// The scope's own range that holds an address; false if none does.
    virtual bool rangeAt(unsigned long long& start, unsigned long long& end, unsigned long long address);
    virtual status_t nonOverlappedSymbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start,
                                               unsigned long long end, symbol_kind_t mask, ISymbolChooser* resolver);
    // The next two are required of a scope. The table asks its maker, and has takeIn do what was decided.

    /// What becomes of other, which starts where this scope does: flags of merge_flags_t. nextKey is the table's next
    /// boundary, nextScope what starts there last, or null.
    virtual unsigned int mergeDecision(Scope& other, unsigned long long nextKey, Scope* nextScope);
    /// Does to this scope what was decided, but for the record's end.
    virtual void merge(Scope& other, unsigned int flags, RangeRecord& /*record*/) {
        takeIn(other.mergeSide(), flags, &other);
    }

    virtual unsigned long long compUnitId() { return k_noCompUnit; }
    virtual Symbol* symbolImpl() { return nullptr; }
    /// Loads the kinds in mask that were not asked for before. What a failed load failed to give is
    /// not asked for again.
    virtual status_t ensureKinds(unsigned int mask);
    virtual status_t loadKinds(unsigned int mask) = 0;
    /// Made on first use: most scopes are leaves, and never get one.
    virtual ISymbolTable* symbolTable();
    virtual ThunkList const& thunks();
    virtual RangeList const& ranges() { return ownRanges(); }
    /// Whose rule goes for this scope.
    virtual IScopeMaker& maker() { return PlainScopeMaker::ofClients(); }
    /// merge with what may have no scope: whole is null then.
    virtual void takeIn(MergeSide const& /*other*/, unsigned int /*flags*/, Scope* /*whole*/) {}
    /// How it stands in the decision. The name is null for a scope without a symbol.
    MergeSide mergeSide();

    /// The innermost inlined body that holds an address, of several the last in the debug information; false if none
    /// does. Any thread, and no load.
    virtual bool innermostInlinedAt(unsigned long long /*address*/, InlinedCall& /*out*/) { return false; }
    /// The body that one which holds an address is inlined into; false if that is the scope itself.
    virtual bool inlinedAround(InlinedCall const& /*inner*/, unsigned long long /*address*/, InlinedCall& /*out*/) {
        return false;
    }
    /// Where one of them is called; false if the debug information does not tell. Reads the lines of its unit.
    virtual bool callOf(InlinedCall const& /*call*/, CallPlace& /*out*/) { return false; }

    IFileFormatLoader* loader() const { return m_loader; }
    Scope* parentScope() const { return m_parent; }
    /// The lock that all loads below one root go through, one after the other: their loader is one. Null
    /// where the root has none.
    ILock* rootLoadLock() { return m_root->loadLock(); }

    /// Before the scope goes into a table.
    void addRange(unsigned long long start, unsigned long long end) { m_ranges.add(start, end); }
    /// The same for a list that was put together before: what it comes to depends on the order of its ranges.
    void setRanges(RangeList const& ranges) { m_ranges = ranges; }
    bool removeRange(unsigned long long start);
    bool hasSeveralRanges() const { return ownRanges().size() > 1; }
    /// True if a range holds an address, or stands there without a size.
    bool holds(unsigned long long address) const;
    /// All ones without a range.
    unsigned long long firstStart() const { return ownRanges().empty() ? ~0ULL : ownRanges()[0].start; }
    unsigned long long lastEnd() const {
        RangeList const& own = ownRanges();
        return own.empty() ? ~0ULL : own[own.size() - 1].end;
    }

    /// A thunk that starts inside one that is there is ignored.
    void addThunk(Thunk* thunk);
    /// The first thunk that holds an address, or null.
    Thunk* thunkAt(unsigned long long address);

protected:
    /// Bits that a load has been made for.
    std::atomic<unsigned int>& loadedKinds() { return m_loadedKinds; }
    /// Of a root: the lock that all loads below it share.
    virtual ILock* loadLock() { return nullptr; }
    /// Made on first use.
    SymbolTable& ownTable();
    /// For a scope that readers may have: the ranges that they look at stay as they are.
    void replaceRanges(RangeList ranges);

private:
    /// What only few scopes have.
    struct Extras {
        OrvLock lock; ///< Guards the count of the table, and its making.
        Once<SymMgrObjectPtr<ISymbolTable>> table;
        ThunkList thunks;
        std::vector<std::unique_ptr<RangeList>> replacedRanges; ///< The present ones last.
        Extras* nextToGo = nullptr;                             ///< While they are taken down.
    };
    static void takeDown(Extras* extras);
    Extras& extras() {
        return m_extras.get([] { return std::make_unique<Extras>(); });
    }
    template <typename Answer, typename Ask> status_t answer(Answer& out, unsigned int mask, Ask const& ask);
    /// Null as long as nothing was put into it.
    SymbolTable* madeTable() const;

    RangeList const& ownRanges() const {
        RangeList const* const replaced = m_replacedRanges.load(std::memory_order_acquire);
        return replaced != nullptr ? *replaced : m_ranges;
    }

    RangeList m_ranges; ///< As long as m_replacedRanges is null.
    std::atomic<RangeList const*> m_replacedRanges{nullptr};
    Scope* m_parent;             ///< Not counted.
    Scope* m_root;               ///< Not counted. Itself, if it has no parent.
    IFileFormatLoader* m_loader; ///< Not counted.
    Once<Extras> m_extras;
    std::atomic<unsigned int> m_loadedKinds{0};
    unsigned int m_kindsInLoad = 0; ///< What the thread that holds the load lock is loading.
};

/// The scope of a symbol, which it owns.
class SymbolScope : public Scope {
public:
    SymbolScope(IFileFormatLoader* loader, SymbolName name, unsigned long long address, Scope* parent,
                symbol_visibility_t visibility, symbol_kind_t kind);
    /// Gets its symbol by setSymbol.
    SymbolScope(IFileFormatLoader* loader, Scope* parent) : Scope(loader, parent) {}
    /// Takes a ready symbol.
    SymbolScope(IFileFormatLoader* loader, Scope* parent, Symbol* symbol);
    ~SymbolScope() override;

    ISymbol* symbol() override { return m_symbol.get(); }
    Symbol* symbolImpl() override { return m_symbol.get(); }
    unsigned long long compUnitId() override { return m_symbol ? m_symbol->compUnitId() : k_noCompUnit; }
    /// What lies inside is loaded with the parent.
    status_t loadKinds(unsigned int /*mask*/) override { return status_False; }
    virtual void setSymbol(Symbol* symbol);

private:
    void dropSymbol();

    SymMgrObjectPtr<Symbol> m_symbol;
};

} // namespace ORV_3_30
