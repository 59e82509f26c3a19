// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// symbols: the ranges of a module, with overlaps or cut.
#include "orv_cli_commands.h"
#include "orv_cli_debug.h"
#include "orv_cli_find.h"
#include "orv_cli_output.h"
#include "orv_cli_progress.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>

namespace orv_cli {
namespace {

struct KindName {
    char const* name;
    unsigned int kinds;
};
constexpr KindName k_kindNames[] = {
    {"function", symbol_kind_Function | symbol_kind_FunctionAlt},
    {"data", symbol_kind_Data},
    {"other", symbol_kind_Other | symbol_kind_DataAlt},
};

/// False for a word that is no kind.
bool parseKinds(std::string const& text, unsigned int& kinds) {
    kinds = text.empty() ? static_cast<unsigned int>(k_allKinds) : 0;
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

void print(ISymbolRange& range, SymbolsOptions const& options, bool json) {
    ISymbol& symbol = *range.symbol();
    char const* const name = options.demangle ? symbol.demangledName(0) : symbol.name();
    bool const isGlobal = symbol.visibility() == symbol_visibility_Global;
    IThunk* const thunk = range.thunk();
    ICompUnitDetails* unit = nullptr;
    bool const hasUnit = symbol.compUnitDetails(unit) == status_Ok;
    std::string const declaration = hasUnit ? declarationOf(symbol) : std::string();
    if (json) {
        printJson({{"start", hex(startOf(range))},
                   {"size", range.size()},
                   {"kind", nameOf(symbol.kind())},
                   {"visibility", isGlobal ? "global" : "local"},
                   {"name", name},
                   {"thunk", thunk != nullptr},
                   {"unit", hasUnit ? Json(hex(unit->id())) : Json()},
                   {"declared", declaration.empty() ? Json() : Json(declaration)}});
        return;
    }
    std::printf("%016llx %10llu  %-8s  %-6s  %s%s", startOf(range), range.size(), nameOf(symbol.kind()),
                isGlobal ? "global" : "local", name,
                thunk == nullptr    ? ""
                : thunk->isImport() ? "  [import thunk]"
                                    : "  [thunk]");
    if (hasUnit) {
        std::printf("  [unit %s%s%s]", hex(unit->id()).c_str(), declaration.empty() ? "" : ", ", declaration.c_str());
    }
    std::putchar('\n');
}

} // namespace

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

std::string checkKinds(std::string const& kinds) {
    unsigned int mask = 0;
    return parseKinds(kinds, mask) ? "" : kinds + ": the kinds are function, data and other";
}

std::string checkRange(std::string const& range) {
    SymMgrObjectPtr<IAddress> from;
    SymMgrObjectPtr<IAddress> to;
    return parseRange(range, from, to) ? "" : range + ": give two hexadecimal addresses as FROM:TO";
}

std::string checkAddress(std::string const& address) {
    unsigned long long value = 0;
    return parseAddress(address, value) ? "" : address + ": give hexadecimal digits, with or without 0x";
}

int symbols(SymbolsOptions const& options, CommonOptions const& common) {
    SymMgrObjectPtr<IAddress> from;
    SymMgrObjectPtr<IAddress> to;
    parseRange(options.range, from, to);
    unsigned int mask = 0;
    parseKinds(options.kinds, mask);
    auto const kinds = static_cast<symbol_kind_t>(mask);
    Module& module = Module::load(options.module, common);
    Ranges ranges;
    status_t status = status_Ok;
    {
        Progress const progress("reading " + module.name());
        status = module.load([&] {
            return options.disjoint
                       ? module.bank().nonOverlappedSymbolRanges(ranges, kinds, from.get(), to.get(), nullptr)
                       : module.bank().originalSymbolRanges(ranges, kinds, from.get(), to.get());
        });
    }
    if (failed(status)) {
        throw Failure(module.name() + ": " + describe(status));
    }
    forEach(ranges, [&](auto const& range) { print(*range, options, common.json); });
    finishOutput();
    return 0;
}

} // namespace orv_cli
