#include "orv_cli_find.h"

#include "orv_cli_progress.h"

namespace orv_cli {
namespace {

constexpr auto k_functionKinds = static_cast<symbol_kind_t>(symbol_kind_Function | symbol_kind_FunctionAlt);

bool hasName(ISymbol& symbol, std::string const& name) {
    return name == symbol.name() || name == symbol.shortName() || name == symbol.demangledName(0);
}

} // namespace

unsigned long long startOf(ISymbolRange& range) {
    SymMgrObjectPtr<IAddress> start;
    range.startAddress(start);
    return start->pseudoAddr();
}

std::vector<SymMgrObjectPtr<ISymbolRange>> findFunctions(Module& module, std::string const& word) {
    Progress const progress("reading " + module.name());
    std::vector<SymMgrObjectPtr<ISymbolRange>> found;
    Ranges ranges;
    module.load([&] { return module.bank().originalSymbolRanges(ranges, k_functionKinds, nullptr, nullptr); });
    for (auto range = ranges ? ranges->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = ranges->current()) {
        bool isKnown = false;
        for (auto const& earlier : found) {
            isKnown |= earlier->symbol() == range->symbol(); // another range of the same one
        }
        if (!isKnown && hasName(*range->symbol(), word)) {
            found.push_back(range);
        }
        ranges->next();
    }
    unsigned long long value = 0;
    SymMgrObjectPtr<IAddress> where;
    SymMgrObjectPtr<ISymbolRange> range;
    if (found.empty() && parseAddress(word, value) && module.bank().addressByValue(value, where) == status_Ok &&
        module.symbolRangeByAddress(*where, range, k_functionKinds) == status_Ok) {
        found.push_back(range);
    }
    if (found.empty()) {
        throw Failure(module.name() + ": no function is named or stands at " + word +
                      ": 'orv symbols --kind function' lists them");
    }
    return found;
}

} // namespace orv_cli
