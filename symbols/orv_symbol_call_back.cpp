// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Raw symbols are collected, and handed over at the end; stubs go in one by one, as they are few.
#include "symbols/orv_symbol_call_back.h"

#include "symbols/orv_accepted_ranges.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_symboltable.h"

namespace ORV_3_30 {

RegularSymbolCallBack::RegularSymbolCallBack(IFileFormatLoader* loader, ISymbolTable* table, AcceptedRanges* filter,
                                             std::size_t expected)
    : m_loader(loader), m_table(table), m_ownTable(dynamic_cast<SymbolTable*>(table)), m_filter(filter),
      m_collected(m_ownTable != nullptr ? expected : 0) {}

bool RegularSymbolCallBack::isWanted(RawSymbol const& symbol) const {
    return m_filter == nullptr || m_filter->accept(symbol.address, symbol.address + symbol.size);
}

void RegularSymbolCallBack::symbol(RawSymbol const& symbol) {
    if (symbol.name == nullptr || !isWanted(symbol)) {
        return;
    }
    if (m_ownTable != nullptr) {
        m_collected.add(symbol);
    } else {
        addScope(symbol, false);
    }
}

void RegularSymbolCallBack::thunk(RawSymbol const& stub) {
    if (isWanted(stub) && stub.name != nullptr) {
        addScope(stub, true);
    }
}

void RegularSymbolCallBack::addScope(RawSymbol const& symbol, bool isThunk) {
    if (*symbol.name == '\0') {
        return;
    }
    SymMgrObjectPtr<SymbolScope> const scope(new SymbolScope(
        m_loader, SymbolName::borrowed(symbol.name), symbol.address, m_table->scope(), symbol.visibility, symbol.kind));
    unsigned long long const end = symbol.address + symbol.size;
    if (isThunk) {
        scope->addThunk(new ImportThunk(scope.get(), symbol.address, symbol.size));
    } else {
        scope->addRange(symbol.address, end);
    }
    // The table may refuse the scope: the first symbol in stays where two are the same.
    m_table->addRange(symbol.address, end, scope.get());
}

void RegularSymbolCallBack::finish() {
    if (m_ownTable != nullptr) {
        m_ownTable->addRawSymbols(m_loader, m_collected);
    }
}

} // namespace ORV_3_30
