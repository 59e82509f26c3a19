// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Three dynamic symbols say where OAT data lie: where they begin, where their code begins, and their last word.
#include "format/orv_elf_oat.h"

#include "core/orv_address.h"
#include "format/orv_elf_symbols.h"

#include <cstdlib>
#include <string_view>

namespace ORV_3_30 {

bool readsOatFiles() {
    char const* const setting = std::getenv("ORV_USE_LEGACY_OAT_READER"); // NOLINT(concurrency-mt-unsafe)
    return setting != nullptr && *setting != '\0';
}

OatPlace findOatPlace(ElfHelper const& helper, IFileFormatLoader* loader) {
    constexpr std::uint64_t k_entries = 5; // of the section, the null symbol among them
    constexpr unsigned long long k_none = ~0ULL;
    if (helper.sectionData(ElfHelper::role_Dynsym) == nullptr ||
        helper.sectionData(ElfHelper::role_Dynstr) == nullptr) {
        return {};
    }
    unsigned long long data = k_none;
    unsigned long long exec = k_none;
    unsigned long long last = k_none;
    ElfSymbolReader reader(helper, ElfHelper::role_Dynsym, ElfHelper::role_Dynstr, ~0U, k_entries);
    for (RawSymbol symbol{}; reader.next(symbol);) {
        std::string_view const name = symbol.name != nullptr ? symbol.name : "";
        if (name == "oatdata") {
            data = symbol.address;
        } else if (name == "oatexec") {
            exec = symbol.address;
        } else if (name == "oatlastword") {
            last = symbol.address + symbol.size;
        }
    }
    OatPlace place;
    if (data < last && exec < last && last != k_none) {
        place.data = new Address(loader, data);
        place.exec = new Address(loader, exec);
        place.size = static_cast<long long>(last - data);
    }
    return place;
}

} // namespace ORV_3_30
