// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Processors by e_machine (System V ABI, "ELF Header"), and the marks of their symbol tables ("ELF for the Arm
// Architecture", "ELF for the Arm 64-bit Architecture", "RISC-V ELF Specification": mapping symbols).
#include "format/orv_elf_machines.h"

#include <cstring>

namespace ORV_3_30 {
namespace {

constexpr unsigned int k_anyClass = ELFCLASSNONE;

struct Machine {
    unsigned int machine;
    unsigned int fileClass; ///< The only one that is read.
    arch_t arch;
    reading_t reading; ///< From which one on.
};

constexpr Machine k_machines[] = {
    {EM_386, k_anyClass, arch_X86, reading_Classic},        {50, k_anyClass, arch_Em50, reading_Classic},
    {EM_X86_64, k_anyClass, arch_X86_64, reading_Classic},  {EM_ARM, k_anyClass, arch_Arm, reading_Classic},
    {180, k_anyClass, arch_Em180, reading_Classic},         {181, k_anyClass, arch_Em181, reading_Classic},
    {EM_AARCH64, ELFCLASS64, arch_Aarch64, reading_Modern}, {EM_RISCV, ELFCLASS64, arch_Riscv64, reading_Modern},
    {EM_PPC64, ELFCLASS64, arch_Ppc64le, reading_Modern},
};

/// The letters behind the dollar sign.
char const* mappingMarks(arch_t arch) {
    switch (arch) {
    case arch_Arm: return "atd";
    case arch_Aarch64:
    case arch_Riscv64: return "xd";
    default: return "";
    }
}

} // namespace

arch_t architectureOf(Elf64_Ehdr const& header, bool is64, reading_t reading) {
    for (Machine const& row : k_machines) {
        bool const isOfClass = row.fileClass == k_anyClass || (row.fileClass == ELFCLASS64) == is64;
        if (row.machine == header.e_machine && isOfClass && row.reading <= reading) {
            return row.arch;
        }
    }
    return arch_Unknown;
}

unsigned int sizeOfPltHead(arch_t arch) { return arch == arch_Aarch64 || arch == arch_Riscv64 ? 32 : 16; }

bool isMappingSymbol(arch_t arch, Elf64_Sym const& symbol, char const* name) {
    if (symbol.st_info != ELF64_ST_INFO(STB_LOCAL, STT_NOTYPE) || name == nullptr) {
        return false;
    }
    if (name[0] == '$' && name[1] != '\0' && std::strchr(mappingMarks(arch), name[1]) != nullptr) {
        // Behind the mark of RISC-V code may stand for which set of instructions it is.
        return name[2] == '\0' || name[2] == '.' || (arch == arch_Riscv64 && std::strncmp(name + 1, "xrv", 3) == 0);
    }
    return arch == arch_Riscv64 && name[0] == '.' && name[1] == 'L';
}

} // namespace ORV_3_30
