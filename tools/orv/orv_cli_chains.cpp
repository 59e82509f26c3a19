// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "orv_cli_chains.h"

#include "orv_cli_find.h"

#include <algorithm>

namespace orv_cli {
namespace {

bool isBody(ISymbolRange& range) { return range.inlineInstance() != nullptr && range.size() != 0; }

} // namespace

InlineChains::Level const& InlineChains::levelOf(ISymbolRange& outer) {
    auto const [entry, isNew] = m_levels.try_emplace({outer.symbol(), startOf(outer)});
    Level& level = entry->second;
    if (!isNew) {
        return level;
    }
    Ranges ranges;
    outer.innerRanges(ranges);
    for (auto range = ranges ? ranges->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = ranges->current()) {
        if (isBody(*range)) {
            unsigned long long const start = startOf(*range);
            unsigned long long const end = start + range->size();
            level.push_back({start, end, end, range});
        }
        ranges->next();
    }
    std::stable_sort(level.begin(), level.end(), [](Body const& a, Body const& b) {
        return a.start != b.start ? a.start < b.start : a.end > b.end;
    });
    for (std::size_t i = 1; i < level.size(); ++i) {
        level[i].greatestEnd = std::max(level[i].end, level[i - 1].greatestEnd);
    }
    return level;
}

/// Where something without extent stands in front of what holds the address: of the bodies that do the one that starts
/// last, of equal ones the longest.
SymMgrObjectPtr<ISymbolRange> InlineChains::bodyAt(ISymbolRange& outer, unsigned long long address) {
    Level const& level = levelOf(outer);
    auto at = std::upper_bound(level.begin(), level.end(), address,
                               [](unsigned long long value, Body const& body) { return value < body.start; });
    Body const* best = nullptr;
    while (at != level.begin() && (at - 1)->greatestEnd > address &&
           (best == nullptr || (at - 1)->start == best->start)) {
        --at;
        best = at->end > address ? &*at : best;
    }
    return best != nullptr ? best->range : SymMgrObjectPtr<ISymbolRange>();
}

void InlineChains::follow(ISymbolRange& function, IAddress& where, std::vector<SymMgrObjectPtr<ISymbolRange>>& out) {
    out.clear();
    out.emplace_back(&function);
    for (;;) {
        SymMgrObjectPtr<ISymbolRange> inner;
        out.back()->innerRangeByAddress(inner, &where);
        if (inner && !isBody(*inner)) {
            inner = bodyAt(*out.back(), where.pseudoAddr());
        }
        if (!inner) {
            return;
        }
        out.push_back(std::move(inner));
    }
}

} // namespace orv_cli
