// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Compressed sections, by their headers (System V ABI, "Sections", "Section Compression").
#include "orv_cli_compression.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <filesystem>

namespace orv_cli {
namespace {

#ifdef ORV_HAS_ZSTD
constexpr bool k_hasZstd = true;
#define ORV_ZSTD_WORD ", zstd"
#else
constexpr bool k_hasZstd = false;
#define ORV_ZSTD_WORD ""
#endif
#ifdef ORV_HAS_LZMA
constexpr bool k_hasXz = true;
#define ORV_XZ_WORD ", xz"
#else
constexpr bool k_hasXz = false;
#define ORV_XZ_WORD ""
#endif

constexpr unsigned int k_zlib = 1; // ELFCOMPRESS_ZLIB
constexpr unsigned int k_zstd = 2; // ELFCOMPRESS_ZSTD, which older <elf.h> don't have

template <typename T> bool readAt(IModuleImage& file, unsigned long long offset, T* out, unsigned long long count) {
    unsigned long long const size = count * sizeof(T);
    return offset <= file.size() && size <= file.size() - offset && file.read(offset, size, out) == size;
}

/// False for a section that is not compressed, or too short for that.
template <typename Shdr, typename Chdr>
bool readCompression(IModuleImage& file, Shdr const& section, CompressedSection& out) {
    constexpr char k_zdebug[] = ".zdebug_";
    constexpr unsigned int k_magic = 4; // "ZLIB", and behind it the size, big-endian
    Chdr header{};
    if ((section.sh_flags & SHF_COMPRESSED) != 0 && section.sh_size >= sizeof(header) &&
        readAt(file, section.sh_offset, &header, 1)) {
        out.type = header.ch_type;
        out.size = header.ch_size;
        return true;
    }
    unsigned char bytes[k_magic + 8];
    if (out.name.rfind(k_zdebug, 0) != 0 || section.sh_size <= sizeof(bytes) ||
        !readAt(file, section.sh_offset, bytes, sizeof(bytes)) || std::memcmp(bytes, "ZLIB", k_magic) != 0) {
        return false;
    }
    out.type = k_zlib;
    out.size = 0;
    std::for_each(bytes + k_magic, std::end(bytes), [&](unsigned char byte) { out.size = out.size << 8 | byte; });
    return true;
}

/// Of one class of files.
template <typename Ehdr, typename Shdr, typename Chdr> std::vector<CompressedSection> sectionsOf(IModuleImage& file) {
    constexpr unsigned long long k_largestNames = 1 << 24;
    Ehdr header{};
    if (!readAt(file, 0, &header, 1) || header.e_ident[EI_DATA] != ELFDATA2LSB || header.e_shentsize != sizeof(Shdr)) {
        return {};
    }
    std::vector<Shdr> sections(header.e_shnum);
    if (!readAt(file, header.e_shoff, sections.data(), sections.size())) {
        return {};
    }
    std::string names;
    if (header.e_shstrndx < sections.size() && sections[header.e_shstrndx].sh_size <= k_largestNames) {
        Shdr const& section = sections[header.e_shstrndx];
        names.resize(section.sh_size);
        names = readAt(file, section.sh_offset, names.data(), names.size()) ? names : std::string();
    }
    std::vector<CompressedSection> found;
    for (unsigned int i = 0; i < sections.size(); ++i) {
        bool const isNamed = sections[i].sh_name < names.size();
        CompressedSection section{i, isNamed ? names.c_str() + sections[i].sh_name : "", 0, 0};
        if (sections[i].sh_type != SHT_NOBITS && readCompression<Shdr, Chdr>(file, sections[i], section)) {
            found.push_back(std::move(section));
        }
    }
    return found;
}

bool isRead(unsigned int type) {
    return type == k_zlib || (type == k_zstd && k_hasZstd && reading() == reading_Modern);
}

std::string whyUnread(unsigned int type) {
    std::string const name = nameOfCompression(type);
    if (type != k_zstd) {
        return name + ", which orv does not know";
    }
    return name + (k_hasZstd ? ", which the classic reading leaves alone"
                             : ", which this build of orv can't read, for it "
                               "was made without libzstd");
}

/// The file that has the debug information; the module itself may be no plain file.
SymMgrObjectPtr<IModuleImage> symbolFileOf(Module& module, SymMgrObjectPtr<IModuleImage> const& image) {
    char const* const path = module.bank().symFileName();
    std::error_code ignored;
    return std::filesystem::equivalent(path, module.name(), ignored) ? image
                                                                     : IModuleImage::create(path, arch_Unknown, false);
}

} // namespace

std::vector<CompressedSection> compressedSections(IModuleImage& file) {
    unsigned char ident[EI_NIDENT] = {};
    if (!readAt(file, 0, ident, EI_NIDENT) || std::memcmp(ident, ELFMAG, SELFMAG) != 0) {
        return {};
    }
    return ident[EI_CLASS] == ELFCLASS32 ? sectionsOf<Elf32_Ehdr, Elf32_Shdr, Elf32_Chdr>(file)
                                         : sectionsOf<Elf64_Ehdr, Elf64_Shdr, Elf64_Chdr>(file);
}

std::string nameOfCompression(unsigned int type) {
    return type == k_zlib ? "zlib" : type == k_zstd ? "zstd" : "method " + std::to_string(type);
}

std::string unreadSections(Module& module, SymMgrObjectPtr<IModuleImage> const& image) {
    if (module.bank().execFileFormat() != exec_format_Elf) {
        return {};
    }
    if (module.bank().symFileFormat() == symbolFormatDwarf) {
        SymMgrObjectPtr<IModuleImage> const file = symbolFileOf(module, image);
        for (CompressedSection const& section : file ? compressedSections(*file) : std::vector<CompressedSection>()) {
            if (section.name.rfind(".debug_", 0) == 0 && !isRead(section.type)) {
                return "the debug information is compressed by " + whyUnread(section.type) +
                       ": ELF symbols answer in its place";
            }
        }
    }
    SymMgrObjectPtr<ISection> section;
    bool const hasPacked = !k_hasXz && reading() == reading_Modern &&
                           module.bank().sectionByName(".gnu_debugdata", section) == status_Ok &&
                           module.bank().sectionByName(".symtab", section) != status_Ok;
    return hasPacked ? "the symbols in its section .gnu_debugdata are compressed by xz, which this build of orv can't "
                       "read, for it was made without liblzma: exported names alone answer"
                     : std::string();
}

char const* versionText() { return "orv " ORV_VERSION "\nreads what is compressed by zlib" ORV_ZSTD_WORD ORV_XZ_WORD; }

} // namespace orv_cli
