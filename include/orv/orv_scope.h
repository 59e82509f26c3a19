// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Scopes and the symbol table under them.
///
///     SymMgrObjectPtr<ISymbolTable> table = ISymbolTable::create(nullptr);
///     SymbolScope* scope = createSymbolScope(*loader, "f", 0x100, nullptr, symbol_visibility_Global,
///                                            symbol_kind_Function);
///     table->addRange(0x100, 0x200, asScope(scope));
///     SymMgrObjectPtr<ISymbolRange> range;
///     table->symbolRangeByAddress(range, 0x180, symbol_kind_Function, nullptr);
#pragma once

#include "orv/orv_symbol.h"
#include "orv/orv_symbolrange.h"

namespace ORV_3_30 {

class Scope;
class SymbolScope;

/// A stretch of address space with an owner.
class ORV_API IScope : public ISymMgrObject {
public:
    /// Null at the root.
    virtual IScope* parent() = 0;
    /// Null for a scope without a symbol.
    virtual ISymbol* symbol() = 0;
    /// Null but for inlined bodies.
    virtual IInlineInstance* inlineInstance() = 0;
    /// The ranges inside the scope that touch [start, end), in pseudo addresses. Mask 0: the kinds
    /// loaded so far. status_Ok; status_False with a null out if there are none; failures of a load.
    virtual status_t symbolRanges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out,
                                  unsigned long long start, unsigned long long end, symbol_kind_t mask) = 0;
    /// The range inside the scope that wins at a pseudo address; the statuses of symbolRanges.
    virtual status_t symbolRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, unsigned long long address,
                                          symbol_kind_t mask, ISymbolChooser* resolver) = 0;

protected:
    ~IScope() = default;
};

/// Makes a scope with a symbol in it, of no compilation unit. Hand it to a table or hold it in a
/// SymMgrObjectPtr<IScope>: its count is 0. The name is copied. The loader must outlive the scope.
ORV_API SymbolScope* createSymbolScope(IFileFormatLoader& loader, char const* name, unsigned long long address,
                                       Scope* parent, symbol_visibility_t visibility, symbol_kind_t kind);

/// The same scope, as tables take it.
ORV_API Scope* asScope(SymbolScope* scope);

/// Address ranges that may overlap in any way, and which of them wins where.
/// Addresses are pseudo addresses. Ranges are half open; a range of size 0 is a label, found from
/// its address up to the next boundary.
class ORV_API ISymbolTable : public ISymMgrObject {
public:
    /// An empty table for a scope, which may be null. Its count has no lock.
    ORV_API static SymMgrObjectPtr<ISymbolTable> create(Scope* scope);

    /// Adds all ranges and thunks of a scope. False if none of them stayed: the table has then
    /// dropped the scope, and the caller must not use it again.
    virtual bool addScope(Scope* scope) = 0;
    /// Adds one range of a scope; false as in addScope. A null scope only makes start a boundary,
    /// and gives false.
    virtual bool addRange(unsigned long long start, unsigned long long end, Scope* scope) = 0;
    /// The range that wins at an address among the kinds in mask; null if there is none.
    virtual void symbolRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, unsigned long long address,
                                      symbol_kind_t mask, ISymbolChooser* resolver) = 0;
    /// All ranges that touch [start, end), by start, then longest first; null if there are none.
    virtual void symbolRanges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out, unsigned long long start,
                              unsigned long long end, symbol_kind_t mask) = 0;
    /// [start, end) cut into pieces with one winner each; gaps are left out. Null if there are none. A resolver must
    /// live as long as the iterator, which asks it at each step.
    virtual void nonOverlappedSymbolRanges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out,
                                           unsigned long long start, unsigned long long end, symbol_kind_t mask,
                                           ISymbolChooser* resolver) = 0;
    /// The scope that the table belongs to.
    virtual Scope* scope() = 0;

protected:
    ~ISymbolTable() = default;
};

} // namespace ORV_3_30
