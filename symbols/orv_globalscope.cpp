// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The loads of symbols, kind by kind, one at a time.
#include "symbols/orv_globalscope.h"

#include "orv/orv_address.h"
#include "orv/orv_fileformatloader.h"

namespace ORV_3_30 {
namespace {

/// All kinds but plain data.
constexpr unsigned int k_kindsOfRequests =
    symbol_kind_Function | symbol_kind_DataAlt | symbol_kind_Other | symbol_kind_FunctionAlt;

} // namespace

GlobalScope::GlobalScope(IFileFormatLoader* loader, IDebugInfoLoader* debugInfoLoader, ILock* bankLock)
    : Scope(loader, nullptr), m_debugInfoLoader(debugInfoLoader), m_accepted(m_requested) {
    if (m_debugInfoLoader != nullptr) {
        m_resolver = m_debugInfoLoader->srcLineResolver(this, bankLock);
    }
}

GlobalScope::~GlobalScope() {
    // The loader may stay for other banks, and with it symbols that ask the resolver.
    if (auto* const user = dynamic_cast<IScopeUser*>(m_resolver.get())) {
        user->leaveScope(this);
    }
}

status_t GlobalScope::loadKinds(unsigned int mask) {
    if (mask == 0) {
        return status_Ok;
    }
    status_t debugStatus = status_Ok;
    if (m_debugInfoLoader != nullptr) {
        debugStatus = m_debugInfoLoader->loadSymbols(symbolTable(), &m_accepted, mask, m_resolver.get());
    }
    if (loader() == nullptr) {
        return debugStatus;
    }
    status_t const rawStatus = loader()->loadSymbols(symbolTable(), &m_accepted, mask);
    if (failed(rawStatus)) {
        return rawStatus;
    }
    return failed(debugStatus) || rawStatus != status_Ok ? debugStatus : status_Ok;
}

void GlobalScope::addRequestedAddress(unsigned long long address) {
    LockGuard guard(&m_loadLock);
    loadedKinds() = 0;
    if (m_resolver) {
        m_resolver->addressRequested(address);
    }
    m_requested.insert(address);
}

void GlobalScope::clearRequests() {
    LockGuard guard(&m_loadLock);
    loadedKinds() = 0;
    if (m_resolver) {
        m_resolver->requestsCleared();
    }
}

SymMgrObjectPtr<RangeFilter> GlobalScope::rangeFilter() {
    LockGuard guard(&m_loadLock);
    if (m_filter || m_requested.empty()) {
        return m_filter;
    }
    unsigned int kinds = loadedKinds();
    if (kinds == 0) {
        kinds = k_kindsOfRequests;
        ensureKinds(kinds);
    }
    SymMgrObjectPtr<RangeFilter> filter(new RangeFilter);
    for (unsigned long long const address : m_requested) {
        addToFilter(*filter, address, static_cast<symbol_kind_t>(kinds));
    }
    m_filter = filter;
    return m_filter;
}

void GlobalScope::addToFilter(RangeFilter& filter, unsigned long long address, symbol_kind_t kinds) {
    SymMgrObjectPtr<ISymbolRange> found;
    symbolRangeByAddress(found, address, kinds, nullptr);
    if (!found || found->symbol() == nullptr) {
        return;
    }
    SymMgrObjectPtr<SymbolRangeIterator> ranges;
    found->symbol()->ranges(ranges);
    for (auto range = ranges ? ranges->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = ranges->current()) {
        SymMgrObjectPtr<IAddress> start;
        range->startAddress(start);
        unsigned long long const size = range->size() != 0 ? range->size() : range->sizeToNextRange();
        filter.add(start->pseudoAddr(), start->pseudoAddr() + size);
        ranges->next();
    }
}

} // namespace ORV_3_30
