// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// How segments and sections of an ELF file come into being, and which sections lie in a segment.
#pragma once

#include "format/orv_elf_helper.h"
#include "format/orv_section.h"
#include "orv/orv_scope.h"

namespace ORV_3_30 {

class ElfFileLoader;

/// The index of a section that takes no bytes of the file is told by this bit of sh_flags in the
/// lookups by index. Lookups by name go by the section's type. The difference is meant.
unsigned long long emptyInFileByFlag(Elf64_Shdr const& header);

/// A segment for each loadable program header.
class LoadableProgramHeadersWalker final : public ElfHelper::IProgramHeadersCallback {
public:
    explicit LoadableProgramHeadersWalker(ElfFileLoader& loader) : m_loader(loader) {}
    void programHeader(Elf64_Phdr const& header, unsigned int ordinal) override;

private:
    ElfFileLoader& m_loader;
};

/// A segment for each allocated section of a file without loadable program headers, such as a kernel
/// module, and where its code and its data lie.
class DriverSegmentsWalker final : public ElfHelper::ISectionHeadersCallback {
public:
    explicit DriverSegmentsWalker(ElfFileLoader& loader) : m_loader(loader) {}
    void sectionHeader(Elf64_Shdr const& header, unsigned int index) override;

    ElfHelper::Load const& text() const { return m_text; }
    ElfHelper::Load const& data() const { return m_data; }

private:
    ElfFileLoader& m_loader;
    ElfHelper::Load m_text;
    ElfHelper::Load m_data;
};

/// A segment for each section of a relocatable file that has an address of its own.
class LaidOutSegmentsWalker final : public ElfHelper::ISectionHeadersCallback {
public:
    explicit LaidOutSegmentsWalker(ElfFileLoader& loader) : m_loader(loader) {}
    void sectionHeader(Elf64_Shdr const& header, unsigned int index) override;

private:
    ElfFileLoader& m_loader;
};

/// The sections that are found by address.
class SectionHeaderWalker final : public ElfHelper::ISectionHeadersCallback {
public:
    explicit SectionHeaderWalker(ElfFileLoader& loader) : m_loader(loader) {}
    void sectionHeader(Elf64_Shdr const& header, unsigned int index) override;

private:
    ElfFileLoader& m_loader;
};

/// Makes the end of each allocated section a boundary of a table, which no piece of the
/// non-overlapped walk then crosses between two symbols.
class SectionEndWalker final : public ElfHelper::ISectionHeadersCallback {
public:
    explicit SectionEndWalker(ISymbolTable& table) : m_table(table) {}
    void sectionHeader(Elf64_Shdr const& header, unsigned int index) override;

private:
    ISymbolTable& m_table;
};

/// A segment that knows its sections.
class ELFSegment final : public Segment {
public:
    ELFSegment(ElfFileLoader* owner, ElfHelper* helper, SegmentLayout const& layout);
    void sections(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>>& out, bool codeOnly) override;

private:
    SymMgrObjectPtr<ElfHelper> m_helper;
};

/// The sections whose file bytes lie between two positions in the file.
class ELFSectionIterator final : public SymMgrObject<IIterator<SymMgrObjectPtr<ISection>>> {
public:
    ELFSectionIterator(ElfFileLoader* owner, ElfHelper const* helper, unsigned long long lower,
                       unsigned long long limit, bool codeOnly);

    SymMgrObjectPtr<ISection> current() override;
    bool next() override;
    void reset() override;

private:
    bool passes(Elf64_Shdr const& header) const;
    bool settle();

    SymMgrObjectPtr<FileFormatLoader> m_owner;
    ElfHelper const* m_helper; ///< Belongs to the owner.
    unsigned int m_index = 0;
    unsigned long long m_lower;
    unsigned long long m_limit;
    bool m_codeOnly;
};

} // namespace ORV_3_30
