// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// An image of a relocatable file with other headers and symbol values than the file's: what has been changed lies over
// what is read. Format: System V ABI, "ELF Header", "Sections", "Symbol Table", "Program Header".

#include "orv_cli_laid_out.h"

#include <elf.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace orv_cli {
namespace {

constexpr unsigned long long k_firstAddress = 0x10000; // nothing stands at 0: that means "dropped"
constexpr unsigned long long k_alignment = 16;         // also the gap that keeps sections apart

/// Bytes that stand in place of the file's, or behind its end.
struct Overlay {
    unsigned long long offset;
    std::vector<unsigned char> bytes;

    template <typename T> Overlay(unsigned long long where, T const* items, std::size_t count) : offset(where) {
        auto const* const first = reinterpret_cast<unsigned char const*>(items);
        bytes.assign(first, first + count * sizeof(T));
    }
    unsigned long long end() const { return offset + bytes.size(); }
};

class LaidOutImage final : public SymMgrObject<IModuleImage> {
public:
    LaidOutImage(SymMgrObjectPtr<IModuleImage> file, std::vector<Overlay> overlays)
        : m_file(std::move(file)), m_overlays(std::move(overlays)), m_size(m_file->size()) {
        for (Overlay const& overlay : m_overlays) {
            m_size = std::max(m_size, overlay.end());
        }
    }

    unsigned long long read(unsigned long long offset, unsigned long long size, void* buffer) override {
        unsigned long long const inFile = offset < m_file->size() ? std::min(size, m_file->size() - offset) : 0;
        if (inFile != 0 && m_file->read(offset, inFile, buffer) != inFile) {
            return ~0ULL;
        }
        unsigned long long const count = offset < m_size ? std::min(size, m_size - offset) : 0;
        auto* const to = static_cast<unsigned char*>(buffer);
        std::fill(to + inFile, to + count, static_cast<unsigned char>(0));
        for (Overlay const& overlay : m_overlays) {
            unsigned long long const begin = std::max(offset, overlay.offset);
            unsigned long long const end = std::min(offset + count, overlay.end());
            if (begin < end) {
                std::memcpy(to + (begin - offset), overlay.bytes.data() + (begin - overlay.offset), end - begin);
            }
        }
        return count;
    }
    unsigned long long size() override { return m_size; }
    char const* fileName() override { return m_file->fileName(); }
    unsigned long long imageOffset() override { return 0; }
    arch_t architecture() override { return m_file->architecture(); }

private:
    SymMgrObjectPtr<IModuleImage> m_file;
    std::vector<Overlay> m_overlays;
    unsigned long long m_size;
};

/// Lays out a file of one class.
template <typename Ehdr, typename Phdr, typename Shdr, typename Sym> class Layout {
public:
    explicit Layout(IModuleImage& file) : m_file(file) {}

    /// False if the file is not one to be laid out.
    bool run() {
        if (!readHeaders()) {
            return false;
        }
        Phdr headers[2]; // the code, and what is none
        unsigned long long next = k_firstAddress;
        for (bool const isCode : {true, false}) {
            Phdr& header = headers[isCode ? 0 : 1];
            header = Phdr();
            header.p_type = PT_LOAD;
            header.p_flags = isCode ? PF_R | PF_X : PF_R | PF_W;
            header.p_vaddr = static_cast<decltype(header.p_vaddr)>(next);
            if (!place(isCode, next)) {
                return false;
            }
            header.p_memsz = static_cast<decltype(header.p_memsz)>(next - header.p_vaddr);
        }
        m_overlays.emplace_back(m_header.e_shoff, m_sections.data(), m_sections.size());
        moveSymbols();
        // Behind the end of the file, so that nothing else stands there.
        m_header.e_phoff = static_cast<decltype(m_header.e_phoff)>(m_file.size());
        m_header.e_phentsize = sizeof(Phdr);
        m_header.e_phnum = 2;
        m_overlays.emplace_back(m_file.size(), headers, 2);
        m_overlays.emplace_back(0, &m_header, 1);
        return m_header.e_phoff == m_file.size();
    }

    std::vector<Overlay> takeOverlays() { return std::move(m_overlays); }

private:
    /// Empty where the file has fewer.
    template <typename T> std::vector<T> readArray(unsigned long long offset, unsigned long long size) {
        if (offset > m_file.size() || size > m_file.size() - offset) {
            return {};
        }
        std::vector<T> items(size / sizeof(T));
        return m_file.read(offset, items.size() * sizeof(T), items.data()) == items.size() * sizeof(T)
                   ? std::move(items)
                   : std::vector<T>();
    }

    bool readHeaders() {
        std::vector<Ehdr> const header = readArray<Ehdr>(0, sizeof(Ehdr));
        if (header.empty() || header[0].e_type != ET_REL || header[0].e_phnum != 0 ||
            header[0].e_ident[EI_DATA] != ELFDATA2LSB || header[0].e_shentsize != sizeof(Shdr)) {
            return false;
        }
        m_header = header[0];
        m_sections = readArray<Shdr>(m_header.e_shoff, m_header.e_shnum * sizeof(Shdr));
        auto const isPlaced = [](Shdr const& section) { return section.sh_addr != 0; };
        return !m_sections.empty() && std::none_of(m_sections.begin(), m_sections.end(), isPlaced);
    }

    /// False where they don't fit.
    bool place(bool isCode, unsigned long long& next) {
        for (Shdr& section : m_sections) {
            bool const isOurs = (section.sh_flags & SHF_ALLOC) != 0 && section.sh_size != 0 &&
                                ((section.sh_flags & SHF_EXECINSTR) != 0) == isCode;
            if (!isOurs) {
                continue;
            }
            if (section.sh_size > k_lastAddress - next - 2 * k_alignment) {
                return false;
            }
            section.sh_addr = static_cast<decltype(section.sh_addr)>(next);
            next = (next + section.sh_size + 2 * k_alignment - 1) / k_alignment * k_alignment;
            if (next > k_lastAddress - 2 * k_alignment) {
                return false;
            }
        }
        return true;
    }

    void moveSymbols() {
        auto const isSymbols = [](Shdr const& section) { return section.sh_type == SHT_SYMTAB; };
        auto const table = std::find_if(m_sections.begin(), m_sections.end(), isSymbols);
        if (table == m_sections.end()) {
            return;
        }
        std::vector<Sym> symbols = readArray<Sym>(table->sh_offset, table->sh_size);
        if (symbols.empty()) {
            return; // it lies beyond the file
        }
        for (Sym& symbol : symbols) {
            if (symbol.st_shndx < m_sections.size()) {
                symbol.st_value += m_sections[symbol.st_shndx].sh_addr;
            }
        }
        m_overlays.emplace_back(table->sh_offset, symbols.data(), symbols.size());
    }

    static constexpr unsigned long long k_lastAddress =
        std::min<unsigned long long>(std::numeric_limits<decltype(Sym::st_value)>::max(), INT64_MAX);

    IModuleImage& m_file;
    Ehdr m_header{};
    std::vector<Shdr> m_sections;
    std::vector<Overlay> m_overlays;
};

template <typename FileLayout> SymMgrObjectPtr<IModuleImage> layOut(SymMgrObjectPtr<IModuleImage> const& file) {
    FileLayout layout(*file);
    return layout.run() ? SymMgrObjectPtr<IModuleImage>(new LaidOutImage(file, layout.takeOverlays()))
                        : SymMgrObjectPtr<IModuleImage>();
}

} // namespace

SymMgrObjectPtr<IModuleImage> laidOutImage(SymMgrObjectPtr<IModuleImage> const& file) {
    unsigned char ident[EI_NIDENT] = {};
    if (file->read(0, EI_NIDENT, ident) != EI_NIDENT || std::memcmp(ident, ELFMAG, SELFMAG) != 0) {
        return {};
    }
    return ident[EI_CLASS] == ELFCLASS32 ? layOut<Layout<Elf32_Ehdr, Elf32_Phdr, Elf32_Shdr, Elf32_Sym>>(file)
                                         : layOut<Layout<Elf64_Ehdr, Elf64_Phdr, Elf64_Shdr, Elf64_Sym>>(file);
}

bool isRelocatable(IModuleImage& file) {
    Elf64_Ehdr header{};
    Elf32_Ehdr narrow{};
    if (file.read(0, sizeof(narrow), &narrow) != sizeof(narrow) || std::memcmp(narrow.e_ident, ELFMAG, SELFMAG) != 0 ||
        narrow.e_type != ET_REL) {
        return false;
    }
    bool const is32 = narrow.e_ident[EI_CLASS] == ELFCLASS32;
    return is32 ? narrow.e_phnum == 0 : file.read(0, sizeof(header), &header) == sizeof(header) && header.e_phnum == 0;
}

} // namespace orv_cli
