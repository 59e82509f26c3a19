// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The lists of symbols that may stand beside a Linux kernel: "System.map", which its build leaves, and "kallsyms", a
/// copy of what a running one tells.
#pragma once

#include "resolver/orv_symbol_file_candidate.h"

namespace ORV_3_30 {

class SystemMap : public SymbolFileCandidate {
public:
    enum MapKind : unsigned int { map_kind_SystemMap = 0, map_kind_Kallsyms = 1 };

    /// Derives the list's name from the kernel's: "/boot/vmlinuz-6.1" gives "/boot/System.map-6.1".
    SystemMap(char const* imageFile, MapKind mapKind, long long ordinal, ILock* lock);

    symbol_file_format_t symbolFileFormat() override { return symbolFormatSystemMap; }
    /// Any file that is there will do, but a compressed kernel. The validity stays what it was found to be first:
    /// clients know it so.
    long long validateSymbolFile(char const* resolvedSymFile) override;
    unsigned int candidateClassFlag() override { return 0; }
    /// Takes the file if it will do.
    virtual symbol_file_validity_t checkMapFile(char const* path);
};

} // namespace ORV_3_30
