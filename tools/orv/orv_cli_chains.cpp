#include "orv_cli_chains.h"

#include "orv_cli_find.h"

namespace orv_cli {
namespace {

bool isBody(ISymbolRange& range) { return range.inlineInstance() != nullptr && range.size() != 0; }

/// Where something without extent stands in front of what holds the address: of the bodies that do the one that
/// starts last, of equal ones the longest.
SymMgrObjectPtr<ISymbolRange> bodyAt(ISymbolRange& outer, unsigned long long address) {
    SymMgrObjectPtr<ISymbolRange> best;
    unsigned long long bestStart = 0;
    Ranges ranges;
    outer.innerRanges(ranges);
    for (auto range = ranges ? ranges->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = ranges->current()) {
        unsigned long long const start = startOf(*range);
        if (start > address) {
            break; // they come by start
        }
        if (isBody(*range) && address - start < range->size() && (!best || bestStart < start)) {
            best = range;
            bestStart = start;
        }
        ranges->next();
    }
    return best;
}

} // namespace

void followInlines(ISymbolRange& function, IAddress& where, std::vector<SymMgrObjectPtr<ISymbolRange>>& out) {
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
