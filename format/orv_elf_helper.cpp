// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// An ELF file's headers in their 64-bit form (System V ABI, chapter 4), and its sections by role, each read once.
#include "format/orv_elf_helper.h"

#include "core/orv_trace.h"
#include "format/orv_elf_fields.h"
#include "format/orv_elf_machines.h"
#include "format/orv_unpack.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

namespace ORV_3_30 {
namespace {

// Machine 31 keeps three exceptions in the reader, although no architecture belongs to it: the data
// byte, the size of its symbols and the flags of some of its sections.
constexpr unsigned int k_machine31 = 31;
constexpr std::uint64_t k_machine31Flags = 0x100;
constexpr std::uint64_t k_pageMask = 0xFFF;

struct RolePattern {
    char const* name;
    ElfHelper::Role role;
    bool mayBeCompressed; ///< The name with ".z" in front counts too.
    bool isLater = false; ///< Of the modern reading: one that does not lie in the file is none, and the file stays
                          ///< good.
};

constexpr RolePattern k_rolePatterns[] = {
    {".symtab", ElfHelper::role_Symtab, false},
    {".strtab", ElfHelper::role_Strtab, false},
    {".dynsym", ElfHelper::role_Dynsym, false},
    {".dynstr", ElfHelper::role_Dynstr, false},
    {".plt", ElfHelper::role_Plt, false},
    {".gnu_debuglink", ElfHelper::role_DebugLink, false},
    {".note.gnu.build-id", ElfHelper::role_BuildId, false},
    {".debug_info", ElfHelper::role_DebugInfo, true},
    {".debug_abbrev", ElfHelper::role_DebugAbbrev, true},
    {".debug_str", ElfHelper::role_DebugStr, true},
    {".debug_ranges", ElfHelper::role_DebugRanges, true},
    {".debug_loc", ElfHelper::role_DebugLoc, true},
    {".debug_line", ElfHelper::role_DebugLine, true},
    {".debug_line_str", ElfHelper::role_DebugLineStr, true, true},
    {".debug_str_offsets", ElfHelper::role_DebugStrOffsets, true, true},
    {".debug_addr", ElfHelper::role_DebugAddr, true, true},
    {".debug_rnglists", ElfHelper::role_DebugRnglists, true, true},
    {".debug_loclists", ElfHelper::role_DebugLoclists, true, true},
    {".gnu_debugaltlink", ElfHelper::role_DebugAltLink, false, true},
    {".debug_sup", ElfHelper::role_DebugSup, true, true},
    {".gnu_debugdata", ElfHelper::role_PackedSymbols, false, true},
    {".eh_frame", ElfHelper::role_EhFrame, false, true},
    {".debug_frame", ElfHelper::role_DebugFrame, true, true},
};

constexpr char k_rodata[] = ".rodata";

bool matches(RolePattern const& pattern, char const* name) {
    if (std::strcmp(name, pattern.name) == 0) {
        return true;
    }
    return pattern.mayBeCompressed && std::strncmp(name, ".z", 2) == 0 && std::strcmp(name + 2, pattern.name + 1) == 0;
}

} // namespace

ElfHelper::ElfHelper(SymMgrObjectPtr<IModuleImage> image, reading_t reading, ElfHelper const* module)
    : m_fileImage(std::move(image)), m_reading(reading) {
    if (!ORV_ASSERT(m_fileImage, "m_fileImage!=NULL")) {
        ORV_ASSERT(false, "false"); // reading goes on, and fails
        return;
    }
    m_fileSize = m_fileImage->size();
    if (!readHeader()) {
        return;
    }
    m_architecture = architectureOf(m_header, m_is64, m_reading);
    if (!ORV_ASSERT(m_architecture != arch_Unknown, "false")) {
        return;
    }
    m_valid = readProgramHeaders() && readSectionHeaders() && placeSections(module) && classifySections();
}

bool ElfHelper::readImage(std::uint64_t offset, std::uint64_t size, void* out) const {
    std::lock_guard<std::mutex> const guard(m_imageLock);
    return m_fileImage->read(offset, size, out) == size;
}

bool ElfHelper::readHeader() {
    unsigned char bytes[sizeof(Elf64_Ehdr)] = {};
    if (!ORV_ASSERT(readImage(0, EI_NIDENT, bytes), "false")) {
        return false;
    }
    unsigned char const fileClass = bytes[EI_CLASS];
    if (fileClass != ELFCLASS32 && fileClass != ELFCLASS64) {
        ORV_WARN("File " << m_fileImage->fileName() << "has neither ELFCLASS32 nor ELFCLASS64");
        return false;
    }
    m_is64 = fileClass == ELFCLASS64;
    std::size_t const headerSize = m_is64 ? sizeof(Elf64_Ehdr) : sizeof(Elf32_Ehdr);
    if (!ORV_ASSERT(readImage(0, headerSize, bytes), "false")) {
        return false;
    }
    std::memcpy(m_header.e_ident, bytes, EI_NIDENT);
    // Fields are little-endian whatever the data byte says.
    readEhdr(ByteCursor(bytes, headerSize), m_is64, m_header);
    if (m_header.e_ident[EI_DATA] == ELFDATA2MSB && m_header.e_machine == k_machine31) {
        m_header.e_ident[EI_DATA] = ELFDATA2LSB;
    }
    return ORV_ASSERT(m_header.e_ident[EI_DATA] == ELFDATA2LSB, "false");
}

template <typename Visitor> bool ElfHelper::walkTable(std::uint64_t offset, unsigned int count, unsigned int entrySize,
                                                      unsigned int leastEntrySize, Visitor const& visit) const {
    if (entrySize < leastEntrySize || !contains(m_fileSize, offset, std::uint64_t{count} * entrySize)) {
        return false;
    }
    // Entries may stand apart further than they are long, with the most of a large file between them.
    bool const isDense = entrySize == leastEntrySize;
    try {
        std::vector<unsigned char> bytes(std::size_t{isDense ? count : 1} * leastEntrySize);
        if (isDense && !readImage(offset, bytes.size(), bytes.data())) {
            return false;
        }
        for (std::uint64_t i = 0; i < count; ++i) {
            if (!isDense && !readImage(offset + i * entrySize, leastEntrySize, bytes.data())) {
                return false;
            }
            visit(ByteCursor(bytes.data() + (isDense ? i * entrySize : 0), leastEntrySize));
        }
    } catch (std::bad_alloc const&) {
        ORV_ASSERT(false, "false");
        throw;
    }
    return true;
}

bool ElfHelper::readProgramHeaders() {
    if (m_header.e_phnum == 0) {
        return true;
    }
    unsigned int const leastSize = m_is64 ? sizeof(Elf64_Phdr) : sizeof(Elf32_Phdr);
    return walkTable(m_header.e_phoff, m_header.e_phnum, m_header.e_phentsize, leastSize, [&](ByteCursor entry) {
        Elf64_Phdr header{};
        readPhdr(entry, m_is64, header);
        if (header.p_type != PT_LOAD) {
            return;
        }
        header.p_offset += m_fileImage->imageOffset();
        if (m_loadableHeaders.empty()) {
            m_firstLoad = {header.p_vaddr, header.p_memsz};
            moveImage(header.p_vaddr & ~k_pageMask, header.p_memsz);
        } else if (m_loadableHeaders.size() == 1) {
            m_secondLoad = {header.p_vaddr, header.p_memsz};
        }
        m_loadableHeaders.push_back(header);
    });
}

bool ElfHelper::readSectionHeaders() {
    if (m_header.e_shnum == 0) {
        return true; // a file without sections is fine
    }
    unsigned int const leastSize = m_is64 ? sizeof(Elf64_Shdr) : sizeof(Elf32_Shdr);
    auto const read = [&](ByteCursor entry) {
        Elf64_Shdr& header = m_sectionHeaders.emplace_back();
        readShdr(entry, m_is64, header);
        if (m_header.e_machine == k_machine31 && header.sh_flags == k_machine31Flags && header.sh_type != SHT_NULL) {
            header.sh_flags = SHF_ALLOC;
        }
    };
    if (!walkTable(m_header.e_shoff, m_header.e_shnum, m_header.e_shentsize, leastSize, read)) {
        return false;
    }
    if (m_header.e_shstrndx != SHN_UNDEF) {
        m_sectionNames = std::make_shared<SectionBytes const>(readSectionBytes(m_header.e_shstrndx));
        if (m_sectionNames->bytes == nullptr) {
            ORV_ERROR("Failed to read string table for file" << m_fileImage->fileName());
            return false;
        }
    }
    return true;
}

bool ElfHelper::classifySections() {
    indexRelocationSections();
    for (unsigned int i = 0; i < m_sectionHeaders.size(); ++i) {
        if (m_sectionHeaders[i].sh_size == 0) {
            continue;
        }
        classifyAddresses(i);
        if (!classifySection(i)) {
            return false;
        }
    }
    return true;
}

/// The first relocation section for a section wins. Sorted ahead of the list, so that no order of
/// sections makes the list walk.
void ElfHelper::indexRelocationSections() {
    std::vector<std::pair<unsigned long, unsigned long>> found;
    for (unsigned int i = 0; i < m_sectionHeaders.size(); ++i) {
        Elf64_Shdr const& header = m_sectionHeaders[i];
        if (header.sh_size != 0 && (header.sh_type == SHT_RELA || header.sh_type == SHT_REL)) {
            found.emplace_back(header.sh_info, i);
        }
    }
    std::sort(found.begin(), found.end());
    for (auto const& [target, index] : found) {
        m_relocationSections.insert(target, index);
    }
}

bool ElfHelper::liesInOneLoad(Elf64_Shdr const& section, Elf64_Shdr const& next) const {
    return (m_firstLoad.holds(section.sh_addr) && m_firstLoad.holds(next.sh_addr)) ||
           (m_secondLoad.holds(section.sh_addr) && m_secondLoad.holds(next.sh_addr));
}

void ElfHelper::classifyAddresses(unsigned int index) {
    Elf64_Shdr const& section = m_sectionHeaders[index];
    unsigned long long const start = section.sh_addr;
    unsigned long long end = start + section.sh_size;
    // Padding belongs to the section before it, inside one load.
    if (index + 1 < m_sectionHeaders.size()) {
        Elf64_Shdr const& next = m_sectionHeaders[index + 1];
        if (end < next.sh_addr && liesInOneLoad(section, next)) {
            end = next.sh_addr;
        }
    }
    if ((section.sh_flags & SHF_EXECINSTR) != 0) {
        m_codeRanges.set(start, end);
        return;
    }
    bool const isData =
        (section.sh_flags & SHF_WRITE) != 0 || ((section.sh_flags & SHF_ALLOC) != 0 && section.sh_type == SHT_PROGBITS);
    auto const holdsAll = [&](Load const& load) { return load.holds(start) && end - load.start <= load.size; };
    if (isData && (holdsAll(m_secondLoad) || holdsAll(m_firstLoad))) {
        m_dataRanges.set(start, end);
    }
}

bool ElfHelper::classifySection(unsigned int index) {
    Elf64_Shdr const& section = m_sectionHeaders[index];
    if (section.sh_type == SHT_RELA || section.sh_type == SHT_REL || section.sh_type == SHT_NOBITS) {
        return true;
    }
    char const* const name = sectionName(index);
    bool const isRodata = std::strcmp(name, k_rodata) == 0;
    if (isRodata) {
        m_dataRanges.add(section.sh_addr, section.sh_addr + section.sh_size);
    }
    auto const* const pattern =
        std::find_if(std::begin(k_rolePatterns), std::end(k_rolePatterns), [&](RolePattern const& candidate) {
            return m_roles[candidate.role].index == k_noSection && matches(candidate, name);
        });
    bool const lies = contains(m_fileSize, section.sh_offset, section.sh_size);
    bool const hasRole = pattern != std::end(k_rolePatterns) && (lies || !pattern->isLater);
    if (hasRole) {
        m_roles[pattern->role].index = index;
    }
    if (hasRole && pattern->role <= k_lastDataRole) {
        m_roles[pattern->role].hold(new ElfSectionData(index, this));
    }
    if ((isRodata || hasRole) && !lies) {
        ORV_ERROR("Section " << name << "in file " << m_fileImage->fileName()
                             << "has incorrect size or file is truncated");
        return false;
    }
    return true;
}

Elf64_Shdr const* ElfHelper::sectionHeaderByName(char const* name) const {
    for (unsigned int i = 0; i < m_sectionHeaders.size(); ++i) {
        if (std::strcmp(sectionName(i), name) == 0) {
            return &m_sectionHeaders[i];
        }
    }
    return nullptr;
}

char const* ElfHelper::sectionName(unsigned int index) const {
    return index < m_sectionHeaders.size() ? sectionName(m_sectionHeaders[index]) : "";
}

char const* ElfHelper::sectionName(Elf64_Shdr const& header) const {
    bool const isNamed = m_sectionNames && m_sectionNames->bytes != nullptr && header.sh_name < m_sectionNames->size;
    return isNamed ? reinterpret_cast<char const*>(m_sectionNames->bytes.get()) + header.sh_name : "";
}

SectionName ElfHelper::heldName(Elf64_Shdr const& header) const { return {m_sectionNames, sectionName(header)}; }

unsigned int ElfHelper::relocationSectionOf(unsigned int index) const {
    auto const* const item = m_relocationSections.find(index);
    return item != nullptr ? static_cast<unsigned int>(item->value) : k_noSection;
}

void ElfHelper::walkProgramHeaders(IProgramHeadersCallback& callback) const {
    for (unsigned int i = 0; m_valid && i < m_loadableHeaders.size(); ++i) {
        callback.programHeader(m_loadableHeaders[i], i);
    }
}

void ElfHelper::walkSectionHeaders(ISectionHeadersCallback& callback) const {
    for (unsigned int i = 0; m_valid && i < m_sectionHeaders.size(); ++i) {
        callback.sectionHeader(m_sectionHeaders[i], i);
    }
}

SectionBytes ElfHelper::readSectionBytes(unsigned int index) const {
    Elf64_Shdr const* const section = sectionHeader(index);
    if (section == nullptr || !contains(m_fileSize, section->sh_offset, section->sh_size)) {
        return {};
    }
    SectionBytes raw = allocateSectionBytes(section->sh_size);
    if (!ORV_ASSERT(readImage(section->sh_offset, raw.size, raw.bytes.get()), "false")) {
        return {};
    }
    if (m_isLaidOut && section->sh_type == SHT_SYMTAB) {
        placeSymbols(raw.bytes.get(), raw.size, m_is64, m_sectionHeaders);
    }
    SectionBytes uncompressed;
    bool const isNamedCompressed = std::strncmp(sectionName(index), ".zdebug_", 8) == 0;
    if (isNamedCompressed && uncompressZlibSection(raw.bytes.get(), raw.size, uncompressed)) {
        return uncompressed;
    }
    if ((section->sh_flags & SHF_COMPRESSED) == 0) {
        return raw;
    }
    std::string const place = std::string("Section ") + sectionName(index) + " in file " + m_fileImage->fileName();
    return flaggedSectionBytes(std::move(raw), m_is64, m_reading, place);
}

void ElfHelper::copySymbolTablesFrom(ElfHelper const& other) {
    if (&other == this) {
        return;
    }
    if (!ORV_ASSERT(getImageBase() >= other.getImageBase(), "m_imageBase >= elfHelper->getImageBase()")) {
        return;
    }
    unsigned long long const delta = getImageBase() - other.getImageBase();
    // Both or nothing: names without their symbols, or the other way round, serve nobody.
    auto const adopt = [&](Role symbols, Role strings) {
        if (m_roles[symbols].data || m_roles[strings].data || !other.m_roles[symbols].data ||
            !other.m_roles[strings].data) {
            return;
        }
        SymMgrObjectPtr<ISectionData> const table(
            new ElfSectionData(other.readSectionBytes(other.m_roles[symbols].index), delta));
        SymMgrObjectPtr<ISectionData> const names(
            new ElfSectionData(other.readSectionBytes(other.m_roles[strings].index), delta));
        // Who sees the symbols sees their names.
        m_roles[strings].hold(names.get());
        m_roles[symbols].hold(table.get());
    };
    adopt(role_Symtab, role_Strtab);
    adopt(role_Dynsym, role_Dynstr);
}

void ElfHelper::resetLayout(Load const& text, Load const& data) {
    moveImage(text.start, text.size);
    m_codeRanges.reset(text);
    m_secondLoad = data;
    m_dataRanges.reset(data);
}

bool ElfHelper::Ranges::holds(unsigned long long address) const {
    auto const* const last = m_last.load(std::memory_order_relaxed);
    if (last != nullptr && address >= last->first && address < last->second) {
        return true;
    }
    auto const after = m_ends.upper_bound(address);
    if (after == m_ends.begin()) {
        return false;
    }
    auto const& found = *std::prev(after);
    m_last.store(&found, std::memory_order_relaxed); // also when the answer is no
    return address < found.second;
}

void ElfHelper::Ranges::reset(Load const& only) {
    m_last = nullptr;
    m_ends = {{only.start, only.start + only.size}};
}

} // namespace ORV_3_30
