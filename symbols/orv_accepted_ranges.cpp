// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Which symbols requested addresses need: ordered maps, searched round each symbol's bounds.
#include "symbols/orv_accepted_ranges.h"

#include "symbols/orv_scope.h"

#include <algorithm>

namespace ORV_3_30 {

bool AcceptedRanges::accept(unsigned long long start, unsigned long long end) {
    if (m_requested.empty()) {
        return true;
    }
    auto const nextRequested = m_requested.lower_bound(start);
    bool const hasNext = nextRequested != m_requested.end();
    if (hasNext && *nextRequested <= end) {
        auto const [entry, isNew] = m_view.emplace(start, end);
        if (!isNew && (entry->second == k_open || entry->second < end)) {
            entry->second = end;
        }
        return true;
    }

    bool const hasBelow = nextRequested != m_requested.begin();
    auto entry = m_view.lower_bound(start);
    if (start == end && hasNext) {
        // A label is what stands closest below a requested address, unless something else is known
        // to begin in between.
        auto const between = m_view.upper_bound(start);
        if (between == m_view.end() || between->first >= *nextRequested) {
            m_view[start] = k_open;
            return true;
        }
    }
    if (start != end && (entry == m_view.end() || entry->first > end)) {
        entry = entry == m_view.begin() ? m_view.end() : std::prev(entry);
    }
    bool const beginsBefore = entry != m_view.end() && entry->first <= start;
    bool const hasKnownEnd = beginsBefore && entry->second != k_open;
    if (hasKnownEnd && start <= entry->second) {
        return true;
    }
    if (!hasBelow) {
        return false;
    }
    unsigned long long const below = *std::prev(nextRequested);
    if (beginsBefore && (entry->first >= below || (hasKnownEnd && entry->second >= below))) {
        return false; // something closer owns that address
    }
    m_view[start] = k_open;
    return true;
}

bool AcceptedRanges::acceptScope(Scope& scope) {
    if (m_requested.empty()) {
        return true;
    }
    // All are put to it, since it remembers what it has accepted.
    bool isAccepted = false;
    RangeList const& ranges = scope.ranges();
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        isAccepted |= accept(ranges[i].start, ranges[i].end);
    }
    for (SymMgrObjectPtr<Thunk> const& thunk : scope.thunks()) {
        isAccepted |= accept(thunk->address(), thunk->address() + thunk->size());
    }
    return isAccepted;
}

void RangeFilter::add(unsigned long long start, unsigned long long end) {
    auto entry = m_startByEnd.lower_bound(start);
    while (entry != m_startByEnd.end() && entry->second <= end) {
        start = std::min(start, entry->second);
        end = std::max(end, entry->first);
        entry = m_startByEnd.erase(entry);
    }
    m_startByEnd.emplace(end, start);
    m_lowest = std::min(m_lowest, start);
    m_highest = std::max(m_highest, end);
}

bool RangeFilter::isInOne(unsigned long long start, unsigned long long end) const {
    auto const found = m_startByEnd.lower_bound(end);
    return found != m_startByEnd.end() && found->second <= start;
}

} // namespace ORV_3_30
