// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Builds small ELF files field by field, so that a test shows the bytes that it is about.
///
///     ElfBuilder elf(ElfClass::Elf64);
///     elf.load(PF_R | PF_X, 0x400000, 0x1000);
///     elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x400100, std::string(0x100, '\x90'));
///     elf.symbol("main", STB_GLOBAL, STT_FUNC, 0x400100, 0x20);
///     TempFile file(elf.bytes());
#pragma once

#include <cstdint>
#include <elf.h>
#include <string>
#include <vector>

namespace orv_test {

enum class ElfClass { Elf32, Elf64 };

class ElfBuilder {
public:
    struct Section {
        std::string name{};
        std::uint32_t type = SHT_PROGBITS;
        std::uint64_t flags = 0;
        std::uint64_t address = 0;
        std::string data{};
        std::uint64_t size = 0; ///< Where it differs from the data, as in .bss.
        std::uint32_t link = 0;
        std::uint32_t info = 0;
        std::uint64_t offset = 0; ///< Filled in by bytes().
        std::uint64_t alignment = 1;
    };
    struct Load {
        std::uint32_t flags;
        std::uint64_t address;
        std::uint64_t memorySize;
        std::uint64_t offset;
        std::uint64_t fileSize;
    };

    explicit ElfBuilder(ElfClass elfClass = ElfClass::Elf64) : m_is64(elfClass == ElfClass::Elf64) {
        machine = m_is64 ? EM_X86_64 : EM_386;
        m_sections.push_back({"", SHT_NULL});
    }

    std::uint16_t type = ET_EXEC;
    std::uint16_t machine;
    std::uint64_t entry = 0;
    unsigned char dataByte = ELFDATA2LSB;
    bool withSectionHeaders = true;
    unsigned int headerGap = 0; ///< Bytes between section headers.
    unsigned int symbolGap = 0; ///< Bytes between symbols.
    /// The symbols go to .symtab and .strtab, or to .dynsym and .dynstr.
    bool dynamicSymbols = false;

    void load(std::uint32_t flags, std::uint64_t address, std::uint64_t memorySize, std::uint64_t offset = 0,
              std::uint64_t fileSize = 0) {
        m_loads.push_back({flags, address, memorySize, offset, fileSize});
    }
    /// Returns the section's index.
    std::uint32_t section(std::string name, std::uint32_t sectionType, std::uint64_t flags, std::uint64_t address,
                          std::string data, std::uint64_t size = 0, std::uint32_t link = 0, std::uint32_t info = 0) {
        std::uint64_t const fullSize = size != 0 ? size : data.size();
        m_sections.push_back({std::move(name), sectionType, flags, address, std::move(data), fullSize, link, info});
        return static_cast<std::uint32_t>(m_sections.size() - 1);
    }
    void align(std::uint32_t index, std::uint64_t alignment) { m_sections[index].alignment = alignment; }
    /// Returns the symbol's index.
    unsigned int symbol(std::string const& name, unsigned char binding, unsigned char symbolType, std::uint64_t value,
                        std::uint64_t size, std::uint16_t sectionIndex = 1) {
        std::uint32_t const nameOffset = name.empty() ? 0 : static_cast<std::uint32_t>(m_strings.size());
        m_strings += name.empty() ? "" : name + '\0';
        rawSymbol(nameOffset, static_cast<unsigned char>(binding << 4 | symbolType), sectionIndex, value, size);
        return m_symbolCount - 1;
    }
    void rawSymbol(std::uint32_t name, unsigned char info, std::uint16_t sectionIndex, std::uint64_t value,
                   std::uint64_t size) {
        m_symbols.append(symbolGap, '\0');
        std::string kind;
        put(kind, info, 1);
        put(kind, 0, 1);
        put(kind, sectionIndex, 2);
        put(m_symbols, name, 4);
        m_symbols += m_is64 ? kind : "";
        put(m_symbols, value, word());
        put(m_symbols, size, word());
        m_symbols += m_is64 ? "" : kind;
        ++m_symbolCount;
    }
    /// One relocation entry as text for a section's data.
    std::string relocation(bool withAddend, std::uint64_t offset, std::uint64_t symbolIndex,
                           std::uint64_t relocationType, std::uint64_t addend = 0) const {
        std::string entry;
        put(entry, offset, word());
        put(entry, m_is64 ? symbolIndex << 32 | relocationType : symbolIndex << 8 | relocationType, word());
        if (withAddend) {
            put(entry, addend, word());
        }
        return entry;
    }
    /// Indices that the symbol and string sections will get, for links.
    std::uint32_t symbolSection() const { return static_cast<std::uint32_t>(m_sections.size()); }

    /// The file. Section data stand behind the program headers, section headers at the end.
    std::string bytes() const {
        std::vector<Section> sections = m_sections;
        std::uint32_t const symbolSection = static_cast<std::uint32_t>(sections.size());
        if (m_symbolCount > 1) {
            sections.push_back({dynamicSymbols ? ".dynsym" : ".symtab",
                                static_cast<std::uint32_t>(dynamicSymbols ? SHT_DYNSYM : SHT_SYMTAB), 0, 0, m_symbols,
                                m_symbols.size(), symbolSection + 1});
            sections.push_back({dynamicSymbols ? ".dynstr" : ".strtab", SHT_STRTAB, 0, 0, m_strings, m_strings.size()});
        }
        std::string names(1, '\0');
        sections.push_back({".shstrtab", SHT_STRTAB});
        std::vector<std::uint32_t> nameOffsets;
        for (Section const& s : sections) {
            nameOffsets.push_back(s.name.empty() ? 0 : static_cast<std::uint32_t>(names.size()));
            names += s.name.empty() ? "" : s.name + '\0';
        }
        sections.back().data = names;
        sections.back().size = names.size();

        std::uint64_t const headerSize = m_is64 ? 64 : 52;
        std::uint64_t const programSize = m_is64 ? 56 : 32;
        std::uint64_t offset = headerSize + programSize * m_loads.size();
        std::string body;
        for (Section& s : sections) {
            s.offset = offset;
            body += s.data;
            offset += s.data.size();
        }
        std::string file(ELFMAG);
        put(file, m_is64 ? ELFCLASS64 : ELFCLASS32, 1);
        put(file, dataByte, 1);
        put(file, EV_CURRENT, 1);
        file.append(9, '\0');
        put(file, type, 2);
        put(file, machine, 2);
        put(file, EV_CURRENT, 4);
        put(file, entry, word());
        put(file, m_loads.empty() ? 0 : headerSize, word());
        put(file, withSectionHeaders ? offset : 0, word());
        put(file, 0, 4);
        put(file, headerSize, 2);
        put(file, programSize, 2);
        put(file, m_loads.size(), 2);
        put(file, (m_is64 ? 64 : 40) + headerGap, 2);
        put(file, withSectionHeaders ? sections.size() : 0, 2);
        put(file, withSectionHeaders ? sections.size() - 1 : 0, 2);
        for (Load const& l : m_loads) {
            put(file, PT_LOAD, 4);
            if (m_is64) {
                put(file, l.flags, 4);
            }
            put(file, l.offset, word());
            put(file, l.address, word());
            put(file, l.address, word());
            put(file, l.fileSize, word());
            put(file, l.memorySize, word());
            if (!m_is64) {
                put(file, l.flags, 4);
            }
            put(file, 0x1000, word());
        }
        file += body;
        for (std::size_t i = 0; withSectionHeaders && i < sections.size(); ++i) {
            Section const& s = sections[i];
            put(file, nameOffsets[i], 4);
            put(file, s.type, 4);
            put(file, s.flags, word());
            put(file, s.address, word());
            put(file, s.offset, word());
            put(file, s.size, word());
            put(file, s.link, 4);
            put(file, s.info, 4);
            put(file, s.alignment, word());
            put(file, 0, word());
            file.append(headerGap, '\xFF');
        }
        return file;
    }

    static void put(std::string& out, std::uint64_t value, unsigned int width) {
        for (unsigned int i = 0; i < width; ++i) {
            out += static_cast<char>(value >> (8 * i));
        }
    }

private:
    unsigned int word() const { return m_is64 ? 8 : 4; }

    bool m_is64;
    std::vector<Section> m_sections;
    std::vector<Load> m_loads;
    std::string m_symbols = std::string(m_is64 ? 24 : 16, '\0');
    std::string m_strings = std::string(1, '\0');
    unsigned int m_symbolCount = 1;
};

} // namespace orv_test
