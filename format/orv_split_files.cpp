// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Sections of split units by name (DWARF version 5, 7.3.2.2 and 7.3.5, and GNU's forerunner), each read once.
#include "format/orv_split_files.h"

#include "core/orv_cursor.h"
#include "core/orv_trace.h"
#include "format/orv_elf_helper.h"
#include "image/orv_fileimage.h"

#include <sys/stat.h>

namespace ORV_3_30 {
namespace {

struct SplitSectionName {
    char const* name;
    unsigned int role;
    bool isOfLoad; ///< Read ahead, while the file is open.
};

constexpr SplitSectionName k_names[] = {
    {".debug_info.dwo", section_role_DebugInfo, true},
    {".debug_abbrev.dwo", section_role_DebugAbbrev, true},
    {".debug_str.dwo", section_role_DebugStr, true},
    {".debug_str_offsets.dwo", section_role_DebugStrOffsets, true},
    {".debug_rnglists.dwo", section_role_DebugRnglists, true},
    {".debug_cu_index", SplitFile::k_cuIndexRole, true},
    {".debug_loc.dwo", section_role_DebugLoc, false},
    {".debug_loclists.dwo", section_role_DebugLoclists, false},
};

/// By the plain name or the one of compressed sections.
unsigned int indexOf(ElfHelper const& elf, std::string const& name) {
    for (unsigned int i = 0; i < elf.sectionCount(); ++i) {
        char const* const found = elf.sectionName(i);
        if (name == found || ".z" + name.substr(1) == found) {
            return i;
        }
    }
    return k_noSection;
}

} // namespace

bool FileIdentity::of(char const* path, FileIdentity& out) {
    struct stat64 info {};
    // A look ahead of the opening: to open a pipe would be to wait for who writes into it.
    if (::stat64(path, &info) != 0 || !S_ISREG(info.st_mode)) {
        return false;
    }
    out = {info.st_dev, info.st_ino, static_cast<std::uint64_t>(info.st_size), info.st_mtim.tv_sec,
           info.st_mtim.tv_nsec};
    return true;
}

std::shared_ptr<SplitFile> SplitFile::open(char const* path, std::uint64_t most) {
    static_assert(std::size(k_names) == k_sectionCount);
    FileIdentity identity;
    if (!FileIdentity::of(path, identity)) {
        return nullptr;
    }
    if (identity.size > most) {
        ORV_WARN("Split debug information is too large: " << path);
        return nullptr;
    }
    std::shared_ptr<SplitFile> file(new SplitFile(path, identity));
    SymMgrObjectPtr<ElfHelper> const elf = file->openElf();
    if (!elf) {
        ORV_WARN("Split debug information cannot be read: " << path);
        return nullptr;
    }
    for (std::size_t i = 0; i < k_sectionCount; ++i) {
        if (k_names[i].isOfLoad) {
            read(*elf, i, file->m_sections[i]);
        }
    }
    if (!file->m_sections[0].data) {
        ORV_WARN("No split debug information in " << path);
        return nullptr;
    }
    return file;
}

SymMgrObjectPtr<ElfHelper> SplitFile::openElf() const {
    SymMgrObjectPtr<IModuleImage> const image(new FileImage(m_path.c_str(), 0, arch_Unknown));
    FileIdentity now;
    if (!FileIdentity::of(m_path.c_str(), now) || !(now == m_identity) || !isElf(image.get())) {
        return nullptr;
    }
    SymMgrObjectPtr<ElfHelper> const elf(new ElfHelper(image, reading_Modern));
    return elf->valid() ? elf : nullptr;
}

void SplitFile::read(ElfHelper const& elf, std::size_t number, Section& out) {
    out.isSought = true;
    unsigned int const index = indexOf(elf, k_names[number].name);
    if (index != k_noSection) {
        SectionBytes bytes = elf.readSectionBytes(index);
        if (bytes.bytes != nullptr && bytes.size != 0) {
            out.data = new ElfSectionData(std::move(bytes), 0);
        }
    }
}

SymMgrObjectPtr<ISectionData> SplitFile::section(unsigned int role) {
    for (std::size_t i = 0; i < k_sectionCount; ++i) {
        if (k_names[i].role != role) {
            continue;
        }
        std::lock_guard<std::mutex> const guard(m_lock);
        Section& section = m_sections[i];
        if (!section.isSought) {
            section.isSought = true;
            if (SymMgrObjectPtr<ElfHelper> const elf = openElf()) {
                read(*elf, i, section);
            }
        }
        return section.data;
    }
    return nullptr;
}

SectionSlice::SectionSlice(SymMgrObjectPtr<ISectionData> whole, std::uint64_t offset, std::uint64_t size)
    : m_whole(std::move(whole)) {
    if (contains(m_whole->size(), offset, size)) {
        m_offset = offset;
        m_size = size;
    }
}

} // namespace ORV_3_30
