// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Files in which compilers leave debug information that linkers have nothing to do with: object files of split units
/// (".dwo"), and packages of them (".dwp").
///
///     std::shared_ptr<SplitFile> const file = SplitFile::open(path, most);
///     if (file) file->section(section_role_DebugInfo);      // .debug_info.dwo
#pragma once

#include "format/orv_ffl.h"

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace ORV_3_30 {

class ElfHelper;

/// Where such files may lie. The answers are names alone: nothing is opened.
class ISplitFiles {
public:
    virtual ~ISplitFiles() = default;
    /// Of a package for all units of a module, the likeliest first.
    virtual std::vector<std::string> packages() const = 0;
    /// Of a file by the name and the directory that a unit tells, the likeliest first.
    virtual std::vector<std::string> placesOf(std::string const& directory, std::string const& name) const = 0;
};

/// What tells one state of one file from any other.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;

    /// False for what is no regular file.
    static bool of(char const* path, FileIdentity& out);
    bool isSameFile(FileIdentity const& other) const { return device == other.device && inode == other.inode; }
    bool operator==(FileIdentity const& other) const {
        return isSameFile(other) && size == other.size && seconds == other.seconds && nanoseconds == other.nanoseconds;
    }
};

/// One such file. It is open only while something is read: a program has thousands. Sections stay as long as this.
/// Any thread may ask.
class SplitFile {
public:
    /// Of the index of a package, beside those that other files have too.
    static constexpr unsigned int k_cuIndexRole = 0x100;

    /// Reads what a load needs. Null for what is no regular file, no ELF file or a broken one, has no split units, or
    /// is larger than most; what is wrong is logged.
    static std::shared_ptr<SplitFile> open(char const* path, std::uint64_t most);

    char const* path() const { return m_path.c_str(); }
    FileIdentity const& identity() const { return m_identity; }
    /// By section_role_t. Null if there is none, and once the file has changed for one that was not read before.
    SymMgrObjectPtr<ISectionData> section(unsigned int role);

private:
    struct Section {
        SymMgrObjectPtr<ISectionData> data;
        bool isSought = false;
    };
    static constexpr std::size_t k_sectionCount = 8;

    SplitFile(char const* path, FileIdentity const& identity) : m_path(path), m_identity(identity) {}
    /// Null if it can't be read, or is another file by now.
    SymMgrObjectPtr<ElfHelper> openElf() const;
    static void read(ElfHelper const& elf, std::size_t number, Section& out);

    std::string m_path;
    FileIdentity m_identity;
    std::mutex m_lock; ///< Of the sections.
    std::array<Section, k_sectionCount> m_sections;
};

/// Bytes of a section that is in memory.
class SectionSlice final : public ISectionData {
public:
    /// One that does not lie in the section is empty.
    SectionSlice(SymMgrObjectPtr<ISectionData> whole, std::uint64_t offset, std::uint64_t size);

    unsigned char* data() override { return m_whole->data() + m_offset; }
    unsigned long long size() override { return m_size; }
    unsigned int sectionIndex() override { return k_noSection; }
    unsigned long long addressDelta() override { return 0; }

private:
    SymMgrObjectPtr<ISectionData> m_whole;
    std::uint64_t m_offset = 0;
    std::uint64_t m_size = 0;
};

} // namespace ORV_3_30
