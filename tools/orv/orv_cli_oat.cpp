// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The first dynamic symbols name the OAT data, whose header begins with "oat\n", the version and, behind a few words
// whose number the version decides, the count of DEX files.
#include "orv_cli_oat.h"

#include "orv_cli_find.h"

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

/// The value of the symbol at a place of .dynsym, if it has that name; else nothing.
template <typename Symbol> std::optional<unsigned long long> valueIfNamed(std::string_view wanted, ISection& symbols,
                                                                          ISection& names, unsigned long long index) {
    SymMgrObjectPtr<IBuffer> bytes;
    if ((index + 1) * sizeof(Symbol) > symbols.size() ||
        symbols.readAt(index * sizeof(Symbol), sizeof(Symbol), bytes) != status_Ok) {
        return std::nullopt;
    }
    Symbol symbol;
    std::memcpy(&symbol, bytes->data(), sizeof(symbol));
    std::string_view const text(wanted.data(), wanted.size() + 1); // the zero behind it too
    if (symbol.st_name > names.size() || text.size() > names.size() - symbol.st_name ||
        names.readAt(symbol.st_name, text.size(), bytes) != status_Ok ||
        std::memcmp(bytes->data(), text.data(), text.size()) != 0) {
        return std::nullopt;
    }
    return symbol.st_value;
}

/// The address of the OAT data; nothing for a module that lacks any of the three symbols.
std::optional<unsigned long long> oatDataOf(Module& module) {
    constexpr unsigned long long k_symbols = 5; // the library looks at no more
    SymMgrObjectPtr<ISection> symbols;
    SymMgrObjectPtr<ISection> names;
    if (module.bank().sectionByName(".dynsym", symbols) != status_Ok ||
        module.bank().sectionByName(".dynstr", names) != status_Ok) {
        return std::nullopt;
    }
    auto const find = [&](std::string_view name) {
        std::optional<unsigned long long> found;
        for (unsigned long long index = 0; index < k_symbols && !found; ++index) {
            found = module.is32Bit() ? valueIfNamed<Elf32_Sym>(name, *symbols, *names, index)
                                     : valueIfNamed<Elf64_Sym>(name, *symbols, *names, index);
        }
        return found;
    };
    std::optional<unsigned long long> const data = find("oatdata");
    return data && find("oatexec") && find("oatlastword") ? data : std::nullopt;
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
