#include "orv_cli_commands.h"
#include "orv_cli_output.h"

#include <cstdio>

namespace orv_cli {
namespace {

using RangeIterator = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>;

constexpr unsigned int k_allKinds =
    symbol_kind_Function | symbol_kind_DataAlt | symbol_kind_Data | symbol_kind_Other | symbol_kind_FunctionAlt;

struct KindName {
    char const* name;
    unsigned int kinds;
};
constexpr KindName k_kindNames[] = {
    {"function", symbol_kind_Function | symbol_kind_FunctionAlt},
    {"data", symbol_kind_Data},
    {"other", symbol_kind_Other | symbol_kind_DataAlt},
};

char const* nameOf(symbol_kind_t kind) {
    switch (kind) {
    case symbol_kind_Function: return "function";
    case symbol_kind_DataAlt: return "label";
    case symbol_kind_Data: return "data";
    case symbol_kind_Other: return "other";
    case symbol_kind_FunctionAlt: return "entry";
    default: return "unknown";
    }
}

unsigned int kindsOf(std::vector<std::string> const& names) {
    unsigned int kinds = 0;
    for (std::string const& name : names) {
        for (KindName const& known : k_kindNames) {
            kinds |= name == known.name ? known.kinds : 0;
        }
    }
    return names.empty() ? k_allKinds : kinds;
}

/// A missing side stays null: no bound.
void parseRange(std::string const& text, SymMgrObjectPtr<IAddress>& from, SymMgrObjectPtr<IAddress>& to) {
    if (text.empty()) {
        return;
    }
    std::size_t const colon = text.find(':');
    std::string const sides[] = {text.substr(0, colon), colon != std::string::npos ? text.substr(colon + 1) : ""};
    for (int side = 0; side < 2; ++side) {
        unsigned long long value = 0;
        if (sides[side].empty()) {
            continue;
        }
        if (colon == std::string::npos || !parseAddress(sides[side], value)) {
            throw Failure("--range " + text + ": give two hexadecimal addresses as FROM:TO");
        }
        (side == 0 ? from : to) = new PlainAddress(value);
    }
}

void print(ISymbolRange& range, SymbolsOptions const& options, bool json) {
    ISymbol& symbol = *range.symbol();
    SymMgrObjectPtr<IAddress> start;
    range.startAddress(start);
    char const* const name = options.demangle ? symbol.demangledName(0) : symbol.name();
    bool const isGlobal = symbol.visibility() == symbol_visibility_Global;
    IThunk* const thunk = range.thunk();
    if (json) {
        Json object;
        object["start"] = hex(start->pseudoAddr());
        object["size"] = range.size();
        object["kind"] = nameOf(symbol.kind());
        object["visibility"] = isGlobal ? "global" : "local";
        object["name"] = name;
        object["thunk"] = thunk != nullptr;
        printJson(object);
        return;
    }
    std::printf("%016llx %10llu  %-8s  %-6s  %s%s\n", start->pseudoAddr(), range.size(), nameOf(symbol.kind()),
                isGlobal ? "global" : "local", name,
                thunk == nullptr      ? ""
                : thunk->isImport() ? "  [import thunk]"
                                      : "  [thunk]");
}

} // namespace

int symbols(SymbolsOptions const& options, CommonOptions const& common) {
    SymMgrObjectPtr<IAddress> from;
    SymMgrObjectPtr<IAddress> to;
    parseRange(options.range, from, to);
    Module const module(options.module, common);
    auto const kinds = static_cast<symbol_kind_t>(kindsOf(options.kinds));
    RangeIterator ranges;
    status_t const status =
        options.disjoint ? module.bank().nonOverlappedSymbolRanges(ranges, kinds, from.get(), to.get(), nullptr)
                         : module.bank().originalSymbolRanges(ranges, kinds, from.get(), to.get());
    if (failed(status)) {
        throw Failure(module.name() + ": " + describe(status));
    }
    if (ranges) {
        for (auto range = ranges->current(); range; range = ranges->current()) {
            print(*range, options, common.json);
            ranges->next();
        }
    }
    finishOutput();
    return 0;
}

} // namespace orv_cli
