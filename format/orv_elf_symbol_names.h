// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a symbol table calls the stretches that debug information has no full name for.
#pragma once

#include "format/orv_elf_packed.h"
#include "format/orv_elf_symbols.h"

#include <string_view>
#include <vector>

namespace ORV_3_30 {

/// Not changed once it is made: any thread may ask. The tables outlive it.
class ElfSymbolNames {
public:
    /// The tables, if there are any, stay as long as this.
    ElfSymbolNames(ElfHelper const& helper, ElfSymbolTables const& tables);

    /// The name of the function or variable from start to behind the last; null if there is none. Of several it is the
    /// one called own, else the first that other modules can see, else the first.
    char const* find(unsigned long long start, unsigned long long end, std::string_view own) const;

private:
    struct Named {
        unsigned long long start;
        unsigned long long end;
        char const* name;
        bool isLocal;
    };
    static bool isBefore(Named const& a, Named const& b);

    std::vector<Named> m_symbols; ///< By start, end and whether they are local.
};

} // namespace ORV_3_30
