// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Whether a symbol's ranges cover what was asked, stretch by stretch.
#include "manager/orv_range_cover.h"

#include "core/orv_trace.h"
#include "orv/orv_address.h"
#include "orv/orv_symbol.h"

#include <list>

namespace ORV_3_30 {
namespace {

using Stretches = std::list<std::pair<unsigned long long, unsigned long long>>;

/// Takes one range away from the stretches. Where it overlaps only one end of a stretch, what stays
/// is the part that it does cover, so that such a stretch can't count as covered any more: a stretch
/// needs one range that holds it whole, or ranges that hold the pieces left of a split. Clients lean
/// on this.
void subtract(Stretches& stretches, unsigned long long begin, unsigned long long end) {
    for (auto at = stretches.begin(); at != stretches.end();) {
        auto& [start, stop] = *at;
        if (start >= end || begin >= stop) {
            ++at;
        } else if (start >= begin && stop <= end) {
            at = stretches.erase(at);
        } else {
            unsigned long long const originalStop = stop;
            bool const isSplit = start < begin && stop > end;
            if (start >= begin) {
                stop = end;
            } else if (isSplit) {
                stop = begin;
                stretches.insert(at, {end, originalStop});
            } else {
                start = begin;
            }
            ++at;
        }
    }
}

/// Takes the ranges of the iterator away. True if nothing is left.
bool isCovered(IIterator<SymMgrObjectPtr<ISymbolRange>>& covering, Stretches& stretches) {
    for (auto range = covering.current(); range; range = covering.current()) {
        SymMgrObjectPtr<IAddress> start;
        range->startAddress(start);
        if (!ORV_ASSERT(start, "addr != 0L")) {
            return false;
        }
        subtract(stretches, start->rva(), start->rva() + range->size());
        covering.next();
    }
    return stretches.empty();
}

} // namespace

bool coversRanges(ISymbolRange& range, IRanges const& stretches, bool stopAtInline, bool acceptThunks) {
    bool const isInline = range.inlineInstance() != nullptr;
    ISymbol* const symbol = range.symbol();
    if ((stopAtInline && isInline) || symbol == nullptr) {
        return false;
    }
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> covering;
    symbol->ranges(covering);
    if (!covering) {
        return false;
    }
    Stretches left;
    for (unsigned long i = 0; i < stretches.getCount(); ++i) {
        unsigned long long start = 0;
        unsigned long long size = 0;
        if (stretches.getRange(i, start, size)) {
            left.emplace_back(start, start + size);
        }
    }
    if (isCovered(*covering, left)) {
        return true;
    }
    if (!acceptThunks || isInline) {
        return false;
    }
    symbol->thunks(covering);
    return covering && isCovered(*covering, left);
}

} // namespace ORV_3_30
