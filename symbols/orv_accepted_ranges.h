// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a load takes in when a client has asked for certain addresses only.
#pragma once

#include "orv/orv_object.h"

#include <map>
#include <set>

namespace ORV_3_30 {

class Scope;

/// Asked by the loaders for each symbol before they make it. Without requested addresses it accepts
/// everything. It remembers what it has accepted, to tell the symbol closest below a requested
/// address from those further away. Guarded by the lock of the global scope.
class AcceptedRanges {
public:
    explicit AcceptedRanges(std::set<unsigned long long> const& requested) : m_requested(requested) {}

    /// Empty: everything is accepted.
    std::set<unsigned long long> const& requested() const { return m_requested; }
    /// True for a symbol over [start, end] that a query for a requested address may need.
    bool accept(unsigned long long start, unsigned long long end);
    /// True if any range or thunk of a scope is accepted.
    bool acceptScope(Scope& scope);

private:
    using View = std::map<unsigned long long, unsigned long long>;
    static constexpr unsigned long long k_open = ~0ULL; ///< The end of an entry is not known.

    std::set<unsigned long long> const& m_requested;
    View m_view; ///< Start to end.
};

/// The stretches round the requested addresses, disjoint.
class RangeFilter final : public SymMgrObjectImpl {
public:
    /// Stretches that overlap or touch become one.
    void add(unsigned long long start, unsigned long long end);
    /// True if one stretch holds [start, end). Nearly all rows of a module lie outside all of them, which
    /// needs no search.
    bool holds(unsigned long long start, unsigned long long end) const {
        return start >= m_lowest && end <= m_highest && isInOne(start, end);
    }
    std::map<unsigned long long, unsigned long long> const& startByEnd() const { return m_startByEnd; }

private:
    bool isInOne(unsigned long long start, unsigned long long end) const;

    std::map<unsigned long long, unsigned long long> m_startByEnd;
    unsigned long long m_lowest = ~0ULL;
    unsigned long long m_highest = 0;
};

} // namespace ORV_3_30
