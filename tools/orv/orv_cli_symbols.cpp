#include "orv_cli_commands.h"
#include "orv_cli_output.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>

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

/// False for a word that is no kind.
bool parseKinds(std::string const& text, unsigned int& kinds) {
    kinds = text.empty() ? k_allKinds : 0;
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, ',');) {
        auto const known = std::find_if(std::begin(k_kindNames), std::end(k_kindNames),
                                        [&](KindName const& kind) { return word == kind.name; });
        if (known == std::end(k_kindNames)) {
            return false;
        }
        kinds |= known->kinds;
    }
    return true;
}

/// A missing side stays null: no bound. False unless both sides are addresses or missing.
bool parseRange(std::string const& text, SymMgrObjectPtr<IAddress>& from, SymMgrObjectPtr<IAddress>& to) {
    std::size_t const colon = text.find(':');
    if (colon == std::string::npos) {
        return text.empty();
    }
    auto const parseSide = [](std::string const& side, SymMgrObjectPtr<IAddress>& out) {
        unsigned long long value = 0;
        if (!side.empty() && parseAddress(side, value)) {
            out = new PlainAddress(value);
        }
        return side.empty() || out;
    };
    return parseSide(text.substr(0, colon), from) && parseSide(text.substr(colon + 1), to);
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
                thunk == nullptr    ? ""
                : thunk->isImport() ? "  [import thunk]"
                                    : "  [thunk]");
}

} // namespace

std::string checkKinds(std::string const& kinds) {
    unsigned int mask = 0;
    return parseKinds(kinds, mask) ? "" : kinds + ": the kinds are function, data and other";
}

std::string checkRange(std::string const& range) {
    SymMgrObjectPtr<IAddress> from;
    SymMgrObjectPtr<IAddress> to;
    return parseRange(range, from, to) ? "" : range + ": give two hexadecimal addresses as FROM:TO";
}

int symbols(SymbolsOptions const& options, CommonOptions const& common) {
    SymMgrObjectPtr<IAddress> from;
    SymMgrObjectPtr<IAddress> to;
    parseRange(options.range, from, to);
    unsigned int mask = 0;
    parseKinds(options.kinds, mask);
    auto const kinds = static_cast<symbol_kind_t>(mask);
    Module& module = Module::load(options.module, common);
    RangeIterator ranges;
    status_t const status = options.disjoint
                                ? module.bank().nonOverlappedSymbolRanges(ranges, kinds, from.get(), to.get(), nullptr)
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
