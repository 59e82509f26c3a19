// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The fields of ELF headers in the order of the file (System V ABI, "ELF Header", "Program Header", "Sections"). The
/// classes differ in the width of some, and in where p_flags stands; out has the 64-bit form. False: too few bytes.
#pragma once

#include "core/orv_cursor.h"

#include <elf.h>

namespace ORV_3_30 {

inline bool readEhdr(ByteCursor cursor, bool is64, Elf64_Ehdr& out) {
    unsigned int const word = is64 ? 8 : 4;
    return cursor.skip(EI_NIDENT) && cursor.read(out.e_type) && cursor.read(out.e_machine) &&
           cursor.read(out.e_version) && cursor.readWord(word, out.e_entry) && cursor.readWord(word, out.e_phoff) &&
           cursor.readWord(word, out.e_shoff) && cursor.read(out.e_flags) && cursor.read(out.e_ehsize) &&
           cursor.read(out.e_phentsize) && cursor.read(out.e_phnum) && cursor.read(out.e_shentsize) &&
           cursor.read(out.e_shnum) && cursor.read(out.e_shstrndx);
}

inline bool readPhdr(ByteCursor cursor, bool is64, Elf64_Phdr& out) {
    unsigned int const word = is64 ? 8 : 4;
    return cursor.read(out.p_type) && (!is64 || cursor.read(out.p_flags)) && cursor.readWord(word, out.p_offset) &&
           cursor.readWord(word, out.p_vaddr) && cursor.readWord(word, out.p_paddr) &&
           cursor.readWord(word, out.p_filesz) && cursor.readWord(word, out.p_memsz) &&
           (is64 || cursor.read(out.p_flags)) && cursor.readWord(word, out.p_align);
}

inline bool readShdr(ByteCursor cursor, bool is64, Elf64_Shdr& out) {
    unsigned int const word = is64 ? 8 : 4;
    return cursor.read(out.sh_name) && cursor.read(out.sh_type) && cursor.readWord(word, out.sh_flags) &&
           cursor.readWord(word, out.sh_addr) && cursor.readWord(word, out.sh_offset) &&
           cursor.readWord(word, out.sh_size) && cursor.read(out.sh_link) && cursor.read(out.sh_info) &&
           cursor.readWord(word, out.sh_addralign) && cursor.readWord(word, out.sh_entsize);
}

} // namespace ORV_3_30
