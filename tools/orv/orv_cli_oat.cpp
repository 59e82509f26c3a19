// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The first dynamic symbols name the OAT data, whose header begins with "oat\n", the version and, behind a few words
// whose number the version decides, the count of DEX files.
#include "orv_cli_oat.h"

#include "orv_cli_find.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <elf.h>

namespace orv_cli {
namespace {

constexpr char const* k_setting = "ORV_USE_LEGACY_OAT_READER";

bool isSet() {
    char const* const setting = std::getenv(k_setting);
    return setting != nullptr && *setting != '\0';
}

struct OatSymbols {
    std::optional<unsigned long long> data;
    bool hasCode = false;
    bool hasEnd = false;
};

/// By the first symbols of .dynsym; the library looks at no more.
template <typename Symbol> OatSymbols findOatSymbols(ISection& symbols, ISection& names) {
    constexpr unsigned long long k_symbols = 5;
    constexpr unsigned long long k_longestName = sizeof("oatlastword");
    OatSymbols found;
    unsigned long long const count = std::min(k_symbols, symbols.size() / sizeof(Symbol));
    SymMgrObjectPtr<IBuffer> entries;
    if (symbols.readAt(0, count * sizeof(Symbol), entries) != status_Ok) {
        return found;
    }
    for (unsigned long long index = 0; index < count; ++index) {
        Symbol symbol;
        std::memcpy(&symbol, entries->data() + index * sizeof(symbol), sizeof(symbol));
        SymMgrObjectPtr<IBuffer> text;
        unsigned long long const room = symbol.st_name < names.size() ? names.size() - symbol.st_name : 0;
        if (room == 0 || names.readAt(symbol.st_name, std::min(room, k_longestName), text) != status_Ok) {
            continue;
        }
        auto const* const begin = reinterpret_cast<char const*>(text->data());
        std::string_view const name(begin, ::strnlen(begin, text->size()));
        bool const isWhole = name.size() < text->size(); // a zero ends it
        if (isWhole && name == "oatdata" && !found.data) {
            found.data = symbol.st_value;
        }
        found.hasCode |= isWhole && name == "oatexec";
        found.hasEnd |= isWhole && name == "oatlastword";
    }
    return found;
}

/// The address of the OAT data; nothing for a module that lacks any of the three symbols.
std::optional<unsigned long long> oatDataOf(Module& module) {
    SymMgrObjectPtr<ISection> symbols;
    SymMgrObjectPtr<ISection> names;
    if (module.bank().sectionByName(".dynsym", symbols) != status_Ok ||
        module.bank().sectionByName(".dynstr", names) != status_Ok) {
        return std::nullopt;
    }
    OatSymbols const found =
        module.is32Bit() ? findOatSymbols<Elf32_Sym>(*symbols, *names) : findOatSymbols<Elf64_Sym>(*symbols, *names);
    return found.hasCode && found.hasEnd ? found.data : std::nullopt;
}

} // namespace

std::optional<OatFacts> oatFactsOf(Module& module) {
    constexpr unsigned long long k_front = 28;
    constexpr std::size_t k_version = 4;
    constexpr long k_firstWithFeatures = 14; // one word more in front of the count
    SymMgrObjectPtr<IAddress> data;
    SymMgrObjectPtr<IBuffer> bytes;
    if (module.bank().symFileFormat() != symbolFormatOat) {
        return std::nullopt;
    }
    std::optional<unsigned long long> const address = oatDataOf(module);
    if (!address || module.bank().addressByValue(*address, data) != status_Ok ||
        module.loader().readBytes(data->fileOffset(), k_front, bytes) != status_Ok ||
        std::memcmp(bytes->data(), "oat\n", 4) != 0) {
        return std::nullopt;
    }
    auto const* const text = reinterpret_cast<char const*>(bytes->data());
    long const version = std::strtol(std::string(text + k_version, 4).c_str(), nullptr, 10);
    OatFacts facts{std::to_string(version), 0, 0};
    std::memcpy(&facts.dexFiles, text + (version < k_firstWithFeatures ? 16 : 20), sizeof(facts.dexFiles));
    Ranges methods;
    module.load([&] { return module.bank().originalSymbolRanges(methods, symbol_kind_Function, nullptr, nullptr); });
    forEach(methods, [&](auto const& range) { facts.methods += range->thunk() == nullptr ? 1 : 0; });
    return facts;
}

std::string unreadOat(Module& module) {
    return isSet() || !oatDataOf(module)
               ? std::string()
               : std::string("is an Android OAT file: set ") + k_setting + "=1 to have its methods and lines read";
}

} // namespace orv_cli
