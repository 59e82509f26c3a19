// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The root of a module's scopes, and the one entry to the loading of symbols.
#pragma once

#include "orv/orv_debuginfoloader.h"
#include "symbols/orv_accepted_ranges.h"
#include "symbols/orv_scope.h"

#include <set>

namespace ORV_3_30 {

/// Who goes by a scope that may go before it.
class IScopeUser {
public:
    virtual void leaveScope(Scope const* scope) = 0;

protected:
    ~IScopeUser() = default;
};

/// Held by value in the bank. m_loadLock serialises all loads; it is recursive, since a loader may
/// query the scope that it fills. Queries of kinds that are there take no lock here.
class GlobalScope final : public Scope {
public:
    GlobalScope(IFileFormatLoader* loader, IDebugInfoLoader* debugInfoLoader, ILock* bankLock);
    ~GlobalScope() override;

    /// Debug symbols first and raw symbols second: debug scopes have the first word in a tie.
    status_t loadKinds(unsigned int mask) override;

    IDebugInfoLoader* debugInfoLoader() const { return m_debugInfoLoader; }
    ISrcLineResolver* srcLineResolver() const { return m_resolver.get(); }

    /// The next query loads again, restricted to what the requested addresses need.
    void addRequestedAddress(unsigned long long address);
    void clearRequests();
    /// The stretches of the symbols at the requested addresses; null if none were requested.
    SymMgrObjectPtr<RangeFilter> rangeFilter();

protected:
    ILock* loadLock() override { return &m_loadLock; }

private:
    void addToFilter(RangeFilter& filter, unsigned long long address, symbol_kind_t kinds);

    IDebugInfoLoader* m_debugInfoLoader; ///< Not counted: the bank holds it. May be null.
    SymMgrObjectPtr<ISrcLineResolver> m_resolver;
    std::set<unsigned long long> m_requested;
    AcceptedRanges m_accepted;
    SymMgrObjectPtr<RangeFilter> m_filter;
    OrvLock m_loadLock;
};

} // namespace ORV_3_30
