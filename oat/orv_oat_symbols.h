// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Compiled methods as symbols, and how they come into a symbol table.
#pragma once

#include "core/orv_once.h"
#include "format/orv_raw_symbol.h"
#include "orv/orv_debuginfoloader.h"
#include "symbols/orv_scope.h"

namespace ORV_3_30 {

/// A method. It has no lines of its own: questions for lines go to the table.
class OATSymbol final : public Symbol {
public:
    /// resolver: may be null. Not counted: it lives as long as the bank.
    OATSymbol(IFileFormatLoader* owner, char const* name, unsigned long long address, symbol_visibility_t visibility,
              symbol_kind_t kind, ISrcLineResolver* resolver)
        : Symbol(owner, SymbolName::copied(name), address, nullptr, visibility, kind, k_noCompUnit),
          m_resolver(resolver) {}

    /// The line at the method's start. status_Ok; status_False where there is none.
    status_t sourceLine(SymMgrObjectPtr<ISourceLine>& out) override;

private:
    /// The same as a place.
    status_t sourceLocation(SymMgrObjectPtr<ISourceLocation>& out);

    ISrcLineResolver* m_resolver;
    Once<SymMgrObjectPtr<ISourceLocation>> m_location; ///< Once there is one.
};

class OATSymbolScope final : public SymbolScope {
public:
    using SymbolScope::SymbolScope;
    ~OATSymbolScope() override = default;
};

/// Adds methods to a table, for one load.
class OATSymbolCallBack final : public ISymbolCallBack {
public:
    OATSymbolCallBack(IFileFormatLoader* loader, ISymbolTable* table, ISrcLineResolver* resolver)
        : m_loader(loader), m_table(table), m_resolver(resolver) {}

    /// The name is copied.
    void symbol(RawSymbol const& method) override;
    void thunk(RawSymbol const& /*stub*/) override {}
    void finish() override {}

private:
    IFileFormatLoader* m_loader;
    ISymbolTable* m_table;
    ISrcLineResolver* m_resolver;
};

} // namespace ORV_3_30
