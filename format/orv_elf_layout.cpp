// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Sections one behind the other, as a linker places them; a companion's by a merge of the names of both files. What a
// symbol's value counts from: System V ABI, "Symbol Table".
#include "format/orv_elf_layout.h"

#include "core/orv_trace.h"
#include "format/orv_elf_symbols.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace ORV_3_30 {
namespace {

constexpr std::size_t k_longestSectionName = 256; ///< That sections of two files are told by.

/// Signed numbers hold all addresses of 64 bits that come of it.
constexpr std::uint64_t lastAddress(bool is64) { return is64 ? INT64_MAX : UINT32_MAX; }

bool isLoaded(Elf64_Shdr const& section) { return (section.sh_flags & SHF_ALLOC) != 0 && section.sh_type != SHT_NULL; }

std::uint64_t alignmentOf(Elf64_Shdr const& section) {
    std::uint64_t const wanted = section.sh_addralign;
    bool const isUsable = (wanted & (wanted - 1)) == 0 && wanted <= k_mostLaidOutAlignment;
    return std::max(isUsable ? wanted : 0, k_leastLaidOutAlignment);
}

void refuse(Elf64_Shdr& section, LaidOutSections& space) {
    section.sh_flags &= ~std::uint64_t{SHF_ALLOC | SHF_EXECINSTR | SHF_WRITE};
    section.sh_addr = 0;
    ++space.refused;
}

void put(unsigned char* to, std::uint64_t value, unsigned int width) {
    for (unsigned int i = 0; i < width; ++i) {
        to[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

/// False if it has no place among what is loaded.
bool place(Elf64_Sym& symbol, std::vector<Elf64_Shdr> const& sections) {
    Elf64_Shdr const& section = sections[symbol.st_shndx];
    if (!isLoaded(section) || symbol.st_value > section.sh_size) {
        return false;
    }
    symbol.st_value += section.sh_addr;
    return true;
}

} // namespace

LaidOutSections layOutSections(std::vector<Elf64_Shdr>& sections, bool is64) {
    LaidOutSections space{k_firstLaidOutAddress};
    std::uint64_t const last = lastAddress(is64);
    std::uint64_t next = k_firstLaidOutAddress;
    for (Elf64_Shdr& section : sections) {
        if (!isLoaded(section)) {
            section.sh_addr = 0;
            continue;
        }
        std::uint64_t const alignment = alignmentOf(section);
        std::uint64_t const start = (next + alignment - 1) / alignment * alignment;
        if (start >= last || section.sh_size >= last - start) {
            refuse(section, space);
            continue;
        }
        section.sh_addr = start;
        next = start + section.sh_size + 1;
        space.size = next - 1 - space.start;
    }
    return space;
}

LaidOutSections layOutLike(std::vector<NamedSection> module, std::vector<NamedSection> sections) {
    LaidOutSections space{k_firstLaidOutAddress};
    auto const isNotLoaded = [](NamedSection const& named) { return !isLoaded(*named.section); };
    for (NamedSection const& named : sections) {
        named.section->sh_addr = 0;
    }
    for (std::vector<NamedSection>* const list : {&module, &sections}) {
        list->erase(std::remove_if(list->begin(), list->end(), isNotLoaded), list->end());
        std::stable_sort(list->begin(), list->end(),
                         [](NamedSection const& a, NamedSection const& b) { return a.name < b.name; });
    }
    auto there = module.begin();
    for (NamedSection const& named : sections) {
        while (there != module.end() && there->name < named.name) {
            ++there;
        }
        bool const isThere = there != module.end() && there->name == named.name;
        Elf64_Shdr const* const same = isThere ? (there++)->section : nullptr;
        if (same == nullptr || same->sh_size != named.section->sh_size) {
            refuse(*named.section, space);
            continue;
        }
        named.section->sh_addr = same->sh_addr;
        space.size = std::max(space.size, same->sh_addr + same->sh_size - space.start);
    }
    return space;
}

void placeSymbols(unsigned char* bytes, std::uint64_t size, bool is64, std::vector<Elf64_Shdr> const& sections) {
    std::uint64_t const entrySize = is64 ? sizeof(Elf64_Sym) : sizeof(Elf32_Sym);
    std::size_t const valueAt = is64 ? offsetof(Elf64_Sym, st_value) : offsetof(Elf32_Sym, st_value);
    std::size_t const sectionAt = is64 ? offsetof(Elf64_Sym, st_shndx) : offsetof(Elf32_Sym, st_shndx);
    Elf64_Sym symbol{};
    for (std::uint64_t at = 0; readElfSymbol(is64, bytes, size, at, symbol); at += entrySize) {
        if (symbol.st_shndx == SHN_COMMON) {
            put(bytes + at + valueAt, 0, is64 ? 8 : 4); // it says how it is to be aligned
        } else if (ELF64_ST_TYPE(symbol.st_info) != STT_TLS && symbol.st_shndx < sections.size()) {
            if (place(symbol, sections)) {
                put(bytes + at + valueAt, symbol.st_value, is64 ? 8 : 4);
            } else {
                put(bytes + at + sectionAt, SHN_UNDEF, 2);
            }
        }
    }
}

std::vector<NamedSection> ElfHelper::namedSections(std::vector<Elf64_Shdr>& headers) const {
    std::vector<NamedSection> named;
    for (Elf64_Shdr& header : headers) {
        char const* const name = sectionName(header);
        named.push_back({{name, ::strnlen(name, k_longestSectionName)}, &header});
    }
    return named;
}

/// Under the modern reading the sections of a relocatable file get addresses before anybody asks for one: those of the
/// module's sections if the file is its companion.
bool ElfHelper::placeSections(ElfHelper const* module) {
    m_isLaidOut = m_reading == reading_Modern && m_header.e_type == ET_REL && m_loadableHeaders.empty();
    if (!m_isLaidOut) {
        return true;
    }
    LaidOutSections space;
    if (module != nullptr && module->isLaidOut()) {
        std::vector<Elf64_Shdr> headers = module->m_sectionHeaders;
        space = layOutLike(module->namedSections(headers), namedSections(m_sectionHeaders));
    } else {
        space = layOutSections(m_sectionHeaders, m_is64);
    }
    if (space.refused != 0) {
        ORV_WARN("File " << m_fileImage->fileName() << " has " << space.refused << " sections without a place");
    }
    m_firstLoad = {space.start, space.size};
    moveImage(space.start, space.size);
    return true;
}

} // namespace ORV_3_30
