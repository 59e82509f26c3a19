// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// How the raw symbols of a format come into a symbol table.
#pragma once

#include "format/orv_raw_symbol.h"
#include "orv/orv_scope.h"
#include "symbols/orv_range_record.h"

namespace ORV_3_30 {

class AcceptedRanges;
class SymbolTable;

/// A table of our own takes symbols all at once, and makes a scope only for those that somebody asks for. Any other
/// table gets a scope for each; the result is the same.
class RegularSymbolCallBack final : public ISymbolCallBack {
public:
    /// filter: null where everything is taken.
    RegularSymbolCallBack(IFileFormatLoader* loader, ISymbolTable* table, AcceptedRanges* filter, std::size_t expected);

    void symbol(RawSymbol const& symbol) override;
    void thunk(RawSymbol const& stub) override;
    void finish() override;

private:
    bool isWanted(RawSymbol const& symbol) const;
    void addScope(RawSymbol const& symbol, bool isThunk);

    IFileFormatLoader* m_loader;
    ISymbolTable* m_table;
    SymbolTable* m_ownTable; ///< Null for a table that somebody else has implemented.
    AcceptedRanges* m_filter;
    RawSymbolBatch m_collected;
};

} // namespace ORV_3_30
