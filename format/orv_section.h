// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Sections and segments as the format loaders hold and hand them out.
#pragma once

#include "format/orv_section_data.h"
#include "orv/orv_section.h"

namespace ORV_3_30 {

class FileFormatLoader;

/// What a section's header says.
class SectionOfHeader : public SymMgrObject<ISection> {
public:
    char const* name() override { return m_name.text; }
    unsigned long long size() override { return m_size; }
    unsigned long long fileOffset() override { return m_fileOffset; }
    unsigned long long address() override { return m_address; }
    unsigned long long isEmptyInFile() override { return m_emptyInFile; }

protected:
    SectionOfHeader(SectionName name, unsigned long long address, unsigned long long fileOffset,
                    unsigned long long size, unsigned long long emptyInFile)
        : m_name(std::move(name)), m_address(address), m_fileOffset(fileOffset), m_size(size),
          m_emptyInFile(emptyInFile) {}

    SectionName m_name;
    unsigned long long m_address;
    unsigned long long m_fileOffset;
    unsigned long long m_size;
    unsigned long long m_emptyInFile;
};

/// A section that reads its bytes from the file. Holds its loader without a count.
class Section final : public SectionOfHeader {
public:
    Section(SectionName name, FileFormatLoader* owner, unsigned long long address, unsigned long long fileOffset,
            unsigned long long size, unsigned long long emptyInFile)
        : SectionOfHeader(std::move(name), address, fileOffset, size, emptyInFile), m_owner(owner) {}

    status_t read(SymMgrObjectPtr<IBuffer>& out) override { return readAt(0, m_size, out); }
    status_t readAt(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) override;

private:
    FileFormatLoader* m_owner;
};

/// A section whose bytes are in memory already.
class SectionDataAdapter final : public SectionOfHeader {
public:
    SectionDataAdapter(SectionName name, ISectionData* data, unsigned long long address, unsigned long long fileOffset,
                       unsigned long long size, unsigned long long emptyInFile)
        : SectionOfHeader(std::move(name), address, fileOffset, size, emptyInFile), m_data(data) {}

    status_t read(SymMgrObjectPtr<IBuffer>& out) override { return readAt(0, m_data->size(), out); }
    status_t readAt(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) override;

private:
    SymMgrObjectPtr<ISectionData> m_data;
};

/// Kinds of segments; what has a kind displaces what has none.
enum segment_type_t : unsigned int { segment_type_Other = 0, segment_type_Code = 1, segment_type_Data = 2 };

/// What a segment is made of.
struct SegmentLayout {
    char const* name;
    unsigned long long rva;
    unsigned long long fileOffset;
    unsigned long long fileSize;
    unsigned long long memorySize;
    unsigned int type;
};

/// Belongs to its loader and lives as long.
class Segment : public ISegment {
public:
    Segment(FileFormatLoader* owner, SegmentLayout const& layout)
        : m_name(layout.name), m_owner(owner), m_rva(layout.rva), m_fileOffset(layout.fileOffset),
          m_fileSize(layout.fileSize), m_memorySize(layout.memorySize), m_type(layout.type) {}
    virtual ~Segment() = default;
    Segment(Segment const&) = delete;
    Segment& operator=(Segment const&) = delete;

    char const* name() override { return m_name; }
    unsigned long long fileSize() override { return m_fileSize; }
    unsigned long long memorySize() override { return m_memorySize; }
    unsigned long long rva() override { return m_rva; }
    unsigned long long fileOffset() override { return m_fileOffset; }
    unsigned int type() override { return m_type; }
    status_t read(SymMgrObjectPtr<IBuffer>& out) override { return readAt(0, m_fileSize, out); }
    status_t readAt(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) override;
    void sections(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>>& out, bool codeOnly) override;

protected:
    FileFormatLoader* owner() const { return m_owner; }

private:
    char const* m_name;
    FileFormatLoader* m_owner;
    unsigned long long m_rva;
    unsigned long long m_fileOffset;
    unsigned long long m_fileSize;
    unsigned long long m_memorySize;
    unsigned int m_type;
};

} // namespace ORV_3_30
