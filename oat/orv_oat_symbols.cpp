// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Methods as symbols: a scope each, which the table takes or refuses.
#include "oat/orv_oat_symbols.h"

#include "lines/orv_sourceline_impl.h"

namespace ORV_3_30 {

/// Asked without a lock, as the question may lead to a load: of threads that ask together one answer stays.
status_t OATSymbol::sourceLocation(SymMgrObjectPtr<ISourceLocation>& out) {
    if (owner() == nullptr || m_resolver == nullptr) { // the bank is gone, and with it whom a place would ask
        return status_False;
    }
    if (m_location.made() == nullptr) {
        SymMgrObjectPtr<ISourceLocation> found;
        m_resolver->sourceLocationByAddress(found, addressValue(), ~0ULL, nullptr, nullptr);
        if (!found) {
            return status_False; // and asked again the next time
        }
        m_location.get([&found] { return std::make_unique<SymMgrObjectPtr<ISourceLocation>>(found); });
    }
    out = *m_location.made();
    return status_Ok;
}

status_t OATSymbol::sourceLine(SymMgrObjectPtr<ISourceLine>& out) {
    out = nullptr;
    SymMgrObjectPtr<ISourceLocation> location;
    status_t const status = sourceLocation(location);
    if (location) {
        out = new SourceLine(owner(), location.get(), addressValue(), addressValue());
    }
    return status;
}

void OATSymbolCallBack::symbol(RawSymbol const& method) {
    if (method.name == nullptr || *method.name == '\0') {
        return;
    }
    unsigned long long const end = method.address + method.size;
    SymMgrObjectPtr<Symbol> const symbol(
        new OATSymbol(m_loader, method.name, method.address, method.visibility, method.kind, m_resolver));
    SymMgrObjectPtr<OATSymbolScope> const scope(new OATSymbolScope(m_loader, m_table->scope(), symbol.get()));
    scope->addRange(method.address, end);
    // The table may refuse the scope, as one that it has already.
    m_table->addRange(method.address, end, scope.get());
}

} // namespace ORV_3_30
