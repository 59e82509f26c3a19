// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Symbols as a format's own symbol table has them, and who is told of them.
#pragma once

#include "orv/orv_symbol.h"

namespace ORV_3_30 {

/// The name stays where it is for as long as the loader lives.
struct RawSymbol {
    char const* name;
    unsigned long long address;
    unsigned long long size;
    symbol_visibility_t visibility;
    symbol_kind_t kind;
};

/// Told of each symbol of a module. What a filter keeps out, and what has no name, is passed over.
class ISymbolCallBack {
public:
    virtual ~ISymbolCallBack() = default;
    virtual void symbol(RawSymbol const& symbol) = 0;
    /// A stub that leads to the import of that name.
    virtual void thunk(RawSymbol const& stub) = 0;
    /// To be called once, after the last one.
    virtual void finish() = 0;
};

} // namespace ORV_3_30
