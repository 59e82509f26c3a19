// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The functions and variables of a symbol table (System V ABI, "Symbol Table"), sorted by their stretches.
#include "format/orv_elf_symbol_names.h"

#include <algorithm>
#include <cstring>
#include <tuple>

namespace ORV_3_30 {

bool ElfSymbolNames::isBefore(Named const& a, Named const& b) {
    return std::tie(a.start, a.end, a.isLocal) < std::tie(b.start, b.end, b.isLocal);
}

ElfSymbolNames::ElfSymbolNames(ElfHelper const& helper, ElfSymbolTables const& tables) {
    if (!tables.symbols) {
        return;
    }
    ElfSymbolReader reader(helper, *tables.symbols, *tables.names, symbol_kind_Function | symbol_kind_Data, ~0ULL,
                           ElfSymbolReader::Places::Any);
    for (RawSymbol symbol{}; reader.next(symbol);) {
        bool const isNamed = symbol.name != nullptr && *symbol.name != '\0';
        if (isNamed && symbol.size != 0 && symbol.kind != symbol_kind_Other) {
            m_symbols.push_back({symbol.address, symbol.address + symbol.size, symbol.name,
                                 symbol.visibility == symbol_visibility_Local});
        }
    }
    std::stable_sort(m_symbols.begin(), m_symbols.end(), isBefore);
    m_symbols.shrink_to_fit();
}

char const* ElfSymbolNames::find(unsigned long long start, unsigned long long end, std::string_view own) const {
    constexpr std::ptrdiff_t k_mostAliases = 16; // that are looked at: a name may be long, and asked for often
    Named const wanted{start, end, nullptr, false};
    auto const first = std::lower_bound(m_symbols.begin(), m_symbols.end(), wanted, isBefore);
    auto const last = first + std::min(k_mostAliases, m_symbols.end() - first);
    char const* found = nullptr;
    for (auto symbol = first; symbol != last && symbol->start == start && symbol->end == end; ++symbol) {
        found = found != nullptr ? found : symbol->name;
        if (std::strncmp(symbol->name, own.data(), own.size()) == 0 && symbol->name[own.size()] == '\0') {
            return symbol->name;
        }
    }
    return found;
}

} // namespace ORV_3_30
