// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Symbols, thunks and inline instances.
#pragma once

#include "orv/orv_iterator.h"
#include "orv/orv_status.h"

namespace ORV_3_30 {

/// Kind of a symbol, one bit each, so that a mask of kinds is one word of the same type.
enum symbol_kind_t : unsigned int {
    symbol_kind_Function = 1,
    symbol_kind_DataAlt = 2, ///< Labels of debug information.
    symbol_kind_Data = 4,
    symbol_kind_Other = 8,       ///< Untyped.
    symbol_kind_FunctionAlt = 16 ///< Further entry points of a function.
};

/// Compared as a signed number: the higher is the more visible.
enum symbol_visibility_t : int { symbol_visibility_Local = 1, symbol_visibility_Global = 2 };

/// Rank of a kind where symbols overlap, the lower the better: 0 FunctionAlt, 1 Function,
/// 2 DataAlt, 3 Other, 4 Data; anything that is not a single kind gives 10.
ORV_API int symbolPriorityByKind(symbol_kind_t kind);

/// A named thing at an address. Strings live as long as the symbol.
class ORV_API ISymbol : public ISymMgrObject {
public:
    /// Where the symbol was declared, of a GPU kernel the place of its first instruction; the symbol's address as start
    /// and end. status_False without debug information.
    virtual status_t sourceLine(SymMgrObjectPtr<ISourceLine>& out) = 0;
    /// The unit that the symbol is from; it lives as long as the bank. status_False, out untouched,
    /// where there is none.
    virtual status_t compUnitDetails(ICompUnitDetails*& out) = 0;
    /// The name as the module has it.
    virtual char const* name() = 0;
    /// Options 0: the full signature. 1: without the parameter list. Names that are not mangled come
    /// back as they are, and so, in this form and the next two, does what name gives where that has 64 KiB or more.
    virtual char const* demangledName(unsigned int options) = 0;
    /// The qualified name without parameters and return type.
    virtual char const* shortName() = 0;
    /// Last component of the short name, without template arguments.
    virtual char const* baseName() = 0;
    virtual symbol_kind_t kind() = 0;
    /// status_Ok.
    virtual status_t address(SymMgrObjectPtr<IAddress>& out) = 0;
    /// The stretches that the symbol covers. Null for a symbol without a scope.
    virtual void ranges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) = 0;
    virtual symbol_visibility_t visibility() = 0;
    /// The stubs through which the symbol is called. Null for a symbol without a scope.
    virtual void thunks(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) = 0;
    /// The lines of the symbol's file in its ranges, of a GPU kernel those at its start; null without debug
    /// information.
    virtual void sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out) = 0;
    /// The line at an address; null without debug information or for a null address.
    virtual void sourceLineByAddress(SymMgrObjectPtr<ISourceLine>& out, IAddress* address) = 0;

protected:
    ~ISymbol() = default;
};

/// A stub that leads to a function. Belongs to the bank.
class ORV_API IThunk : public ISymMgrObject {
public:
    virtual char const* name() = 0;
    /// True for a stub that calls into another module.
    virtual bool isImport() = 0;

protected:
    ~IThunk() = default;
};

/// One inlined call of a function. Belongs to the bank: who holds it longer than that is told nothing any more.
class ORV_API IInlineInstance : public ISymMgrObject {
public:
    /// Where the call stands, as a location in the unit of the function around; null where that is not known, as when
    /// the number of its file is none of the unit's. Made for each call.
    virtual void callSite(SymMgrObjectPtr<ISourceLocation>& out) = 0;
    /// The inlined function.
    virtual ISymbol* symbol() = 0;
    /// True if the debug information tells file and line of the call.
    virtual bool hasCallSite() = 0;

protected:
    ~IInlineInstance() = default;
};

/// A client's own choice among several symbols at one address. Called only if there are two or more.
class ORV_API ISymbolChooser {
public:
    /// One of the candidates, or null for none of them.
    virtual SymMgrObjectPtr<ISymbol> choose(IIterator<SymMgrObjectPtr<ISymbol>>& candidates) = 0;

protected:
    ~ISymbolChooser() = default;
};

} // namespace ORV_3_30
