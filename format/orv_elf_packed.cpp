// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The packed file is looked through for its symbol table alone (System V ABI, "Sections"), and nothing in it is taken
// out of a compression again: what comes out is bounded by what is packed once.
#include "format/orv_elf_packed.h"

#include "core/orv_cursor.h"
#include "core/orv_trace.h"
#include "format/orv_elf_fields.h"
#include "format/orv_unpack.h"

#include <cstring>

namespace ORV_3_30 {
namespace {

/// An ELF file in memory.
class PackedFile {
public:
    explicit PackedFile(SectionBytes const& bytes) : m_bytes(bytes) {}

    /// False unless it is made for the same machine as the program that it lies in.
    bool open(ElfHelper const& program) {
        m_is64 = program.is64();
        unsigned int const entrySize = m_is64 ? sizeof(Elf64_Shdr) : sizeof(Elf32_Shdr);
        unsigned char const* const ident = m_bytes.bytes.get();
        return readEhdr(ByteCursor(ident, m_bytes.size), m_is64, m_header) &&
               std::memcmp(ident, ELFMAG, SELFMAG) == 0 && ident[EI_CLASS] == (m_is64 ? ELFCLASS64 : ELFCLASS32) &&
               ident[EI_DATA] == ELFDATA2LSB && m_header.e_machine == program.header().e_machine &&
               m_header.e_shentsize >= entrySize &&
               contains(m_bytes.size, m_header.e_shoff, std::uint64_t{m_header.e_shnum} * m_header.e_shentsize);
    }

    /// The first table, with the strings that it is linked to.
    ElfSymbolTables tables() const {
        for (unsigned int i = 0; i < m_header.e_shnum; ++i) {
            Elf64_Shdr const table = section(i);
            if (table.sh_type != SHT_SYMTAB || table.sh_link >= m_header.e_shnum) {
                continue;
            }
            Elf64_Shdr const strings = section(table.sh_link);
            if (isPlain(table) && strings.sh_type == SHT_STRTAB && isPlain(strings)) {
                return {copyOf(table), copyOf(strings)};
            }
        }
        return {};
    }

private:
    /// index is below e_shnum: the table lies in the file.
    Elf64_Shdr section(unsigned int index) const {
        ByteCursor cursor(m_bytes.bytes.get(), m_bytes.size);
        cursor.seek(m_header.e_shoff + std::uint64_t{index} * m_header.e_shentsize);
        Elf64_Shdr header{};
        readShdr(cursor.rest(), m_is64, header);
        return header;
    }

    bool isPlain(Elf64_Shdr const& header) const {
        return (header.sh_flags & SHF_COMPRESSED) == 0 && contains(m_bytes.size, header.sh_offset, header.sh_size);
    }

    SymMgrObjectPtr<ISectionData> copyOf(Elf64_Shdr const& header) const {
        SectionBytes copy = allocateSectionBytes(header.sh_size);
        std::memcpy(copy.bytes.get(), m_bytes.bytes.get() + header.sh_offset, header.sh_size);
        return SymMgrObjectPtr<ISectionData>(new ElfSectionData(std::move(copy), 0));
    }

    SectionBytes const& m_bytes;
    Elf64_Ehdr m_header{};
    bool m_is64 = false;
};

char const* why(Unpacked result) {
    return result == Unpacked::NotBuiltIn ? "it is compressed by xz, which this build can't read"
                                          : "it is no xz stream, damaged, or too large for what it is";
}

ElfSymbolTables unpack(ElfHelper const& file) {
    unsigned int const index = file.sectionIndex(ElfHelper::role_PackedSymbols);
    // The symbols of a relocatable file would count from sections, not from the program.
    if (index == k_noSection || file.header().e_type == ET_REL) {
        return {};
    }
    auto const refuse = [&](char const* reason) {
        ORV_ERROR("Section .gnu_debugdata in file " << file.image()->fileName() << " can't be read: " << reason);
        return ElfSymbolTables();
    };
    SectionBytes packed = file.readSectionBytes(index);
    if (packed.bytes == nullptr) {
        return refuse("the file is cut");
    }
    SectionBytes plain;
    Unpacked const result = unpackXz(packed.bytes.get(), packed.size, plain);
    if (result != Unpacked::Done) {
        return refuse(why(result));
    }
    packed = SectionBytes();
    PackedFile inner(plain);
    if (!inner.open(file)) {
        return refuse("what is packed in it is no ELF file for the same machine");
    }
    ElfSymbolTables tables = inner.tables();
    return tables.symbols ? tables : refuse("what is packed in it has no symbol table");
}

} // namespace

ElfSymbolTables const& PackedSymbols::of(ElfHelper const& file) {
    return m_tables.get(m_lock, [&] { return std::make_unique<ElfSymbolTables>(unpack(file)); });
}

} // namespace ORV_3_30
