// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Segments from program headers or, in a relocatable file, from sections (System V ABI, "Program Header").
#include "format/orv_elf_segments.h"

#include "format/orv_fflelf.h"

#include <cstring>

namespace ORV_3_30 {
namespace {
constexpr std::uint64_t k_emptyInFileFlag = 8;
}

unsigned long long emptyInFileByFlag(Elf64_Shdr const& header) {
    return (header.sh_flags & k_emptyInFileFlag) != 0 ? 1 : 0;
}

void LoadableProgramHeadersWalker::programHeader(Elf64_Phdr const& header, unsigned int /*ordinal*/) {
    bool const isCode = (header.p_flags & PF_X) != 0;
    m_loader.addSegment(header.p_vaddr, isCode ? ".text" : ".data", header.p_vaddr - m_loader.preferredLoadAddress(),
                        header.p_offset, header.p_filesz, header.p_memsz,
                        isCode ? segment_type_Code : segment_type_Data);
}

void DriverSegmentsWalker::sectionHeader(Elf64_Shdr const& header, unsigned int index) {
    if ((header.sh_flags & SHF_ALLOC) == 0) {
        return;
    }
    char const* const name = m_loader.helper().sectionName(index);
    unsigned int type = segment_type_Other;
    if (std::strcmp(name, ".text") == 0) {
        type = segment_type_Code;
        m_text = {header.sh_addr, header.sh_size};
    } else if (std::strcmp(name, ".data") == 0) {
        type = segment_type_Data;
    }
    bool const isTaken = m_loader.addSegment(header.sh_addr, name, header.sh_addr - m_text.start, header.sh_offset,
                                             header.sh_size, header.sh_size, type);
    if (isTaken && type == segment_type_Data) {
        m_data = {header.sh_addr, header.sh_size};
    }
}

void LaidOutSegmentsWalker::sectionHeader(Elf64_Shdr const& header, unsigned int index) {
    if ((header.sh_flags & SHF_ALLOC) == 0 || header.sh_size == 0) {
        return;
    }
    bool const isCode = (header.sh_flags & SHF_EXECINSTR) != 0;
    m_loader.addSegment(header.sh_addr, m_loader.helper().sectionName(index),
                        header.sh_addr - m_loader.preferredLoadAddress(), header.sh_offset,
                        header.sh_type == SHT_NOBITS ? 0 : header.sh_size, header.sh_size,
                        isCode ? segment_type_Code : segment_type_Data);
}

void SectionHeaderWalker::sectionHeader(Elf64_Shdr const& header, unsigned int index) {
    if ((header.sh_flags & SHF_ALLOC) != 0 && header.sh_type == SHT_PROGBITS) {
        m_loader.addSection(m_loader.helper().sectionName(index), header.sh_addr, header.sh_size);
    }
}

void SectionEndWalker::sectionHeader(Elf64_Shdr const& header, unsigned int /*index*/) {
    if ((header.sh_flags & SHF_ALLOC) != 0) {
        unsigned long long const end = header.sh_addr + header.sh_size;
        m_table.addRange(end, end, nullptr);
    }
}

ELFSegment::ELFSegment(ElfFileLoader* owner, ElfHelper* helper, SegmentLayout const& layout)
    : Segment(owner, layout), m_helper(helper) {}

void ELFSegment::sections(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>>& out, bool codeOnly) {
    // The limit is the segment's size and not its end: a deliberate simplification that clients know. A section that is
    // a segment lies between its own ends.
    unsigned long long const lower = fileOffset() - m_helper->image()->imageOffset();
    unsigned long long const limit = m_helper->isLaidOut() ? lower + fileSize() : fileSize();
    out = new ELFSectionIterator(static_cast<ElfFileLoader*>(owner()), m_helper.get(), lower, limit, codeOnly);
}

ELFSectionIterator::ELFSectionIterator(ElfFileLoader* owner, ElfHelper const* helper, unsigned long long lower,
                                       unsigned long long limit, bool codeOnly)
    : m_owner(owner), m_helper(helper), m_lower(lower), m_limit(limit), m_codeOnly(codeOnly) {
    settle();
}

bool ELFSectionIterator::passes(Elf64_Shdr const& header) const {
    return header.sh_size != 0 && header.sh_offset >= m_lower && header.sh_offset <= m_limit &&
           header.sh_size <= m_limit - header.sh_offset && (!m_codeOnly || (header.sh_flags & SHF_EXECINSTR) != 0);
}

bool ELFSectionIterator::settle() {
    while (Elf64_Shdr const* const header = m_helper->sectionHeader(m_index)) {
        if (passes(*header)) {
            return true;
        }
        ++m_index;
    }
    return false;
}

SymMgrObjectPtr<ISection> ELFSectionIterator::current() {
    Elf64_Shdr const* const header = m_helper->sectionHeader(m_index);
    if (header == nullptr) {
        return {};
    }
    return SymMgrObjectPtr<ISection>(new Section(m_helper->heldName(*header), m_owner.get(), header->sh_addr,
                                                 header->sh_offset + m_helper->image()->imageOffset(), header->sh_size,
                                                 emptyInFileByFlag(*header)));
}

bool ELFSectionIterator::next() {
    if (m_helper->sectionHeader(m_index) == nullptr) {
        return false;
    }
    ++m_index;
    return settle();
}

void ELFSectionIterator::reset() {
    m_index = 0;
    settle();
}

} // namespace ORV_3_30
