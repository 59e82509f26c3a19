// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// One ELF file: header, loadable program headers, section headers and the sections that the system
/// cares about (System V ABI, "Object Files"). 32-bit and 64-bit files come to one form.
///
///     SymMgrObjectPtr<ElfHelper> helper(new ElfHelper(image));
///     if (!helper->valid()) return status_BadFileFormat;
///     if (helper->isCodeAddress(address)) ...
///
/// Immutable once built, but for the reset for files without loadable segments, which the owner does before it
/// shares the helper, the adopted symbol tables, which a load sees whole or not at all, and the image's base and size.
#pragma once

#include "core/orv_list.h"
#include "core/orv_shared_object.h"
#include "format/orv_elf_layout.h"
#include "format/orv_section_data.h"
#include "orv/orv_moduleimage.h"
#include "orv/orv_reading.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <elf.h>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace ORV_3_30 {

class ElfHelper final : public SharedObject<SymMgrObjectImpl> {
public:
    class IProgramHeadersCallback {
    public:
        virtual void programHeader(Elf64_Phdr const& header, unsigned int ordinal) = 0;

    protected:
        ~IProgramHeadersCallback() = default;
    };
    class ISectionHeadersCallback {
    public:
        virtual void sectionHeader(Elf64_Shdr const& header, unsigned int index) = 0;

    protected:
        ~ISectionHeadersCallback() = default;
    };

    /// Sections with a role in the system. Those up to k_lastDataRole are held as data, the others
    /// as indices.
    enum Role : unsigned int {
        role_Symtab,
        role_Strtab,
        role_Dynsym,
        role_Dynstr,
        role_DebugInfo,
        role_DebugStr,
        role_DebugRanges,
        role_DebugLoc,
        role_Plt,
        role_DebugLink,
        role_BuildId,
        role_DebugAbbrev,
        role_DebugLine,
        role_DebugLineStr,
        role_DebugStrOffsets,
        role_DebugAddr,
        role_DebugRnglists,
        role_DebugLoclists,
        role_DebugAltLink,
        role_DebugSup,
        role_PackedSymbols,
        role_EhFrame,
        role_DebugFrame,
        role_Count
    };

    /// A stretch of memory.
    struct Load {
        unsigned long long start = 0;
        unsigned long long size = 0;
        bool holds(unsigned long long address) const { return address >= start && address - start < size; }
    };

    /// module: whose companion the file may be; its relocatable sections then stand where the module's do.
    explicit ElfHelper(SymMgrObjectPtr<IModuleImage> image, reading_t reading = reading_Classic,
                       ElfHelper const* module = nullptr);

    bool valid() const { return m_valid; }
    bool is64() const { return m_is64; }
    arch_t architecture() const { return m_architecture; }
    Elf64_Ehdr const& header() const { return m_header; }
    IModuleImage* image() const { return m_fileImage.get(); }

    reading_t reading() const { return m_reading; }
    /// True for a relocatable file whose sections have addresses of their own. Symbols that are read from it count from
    /// the same base.
    bool isLaidOut() const { return m_isLaidOut; }
    /// True once: who meets a relocation that nobody knows says so.
    bool isFirstUnknownRelocation() const { return !m_hasUnknownRelocation.exchange(true, std::memory_order_relaxed); }

    /// All ones in a file without loadable segments.
    unsigned long long getImageBase() const { return m_imageBase.load(std::memory_order_relaxed); }
    /// Of the first loadable segment.
    unsigned long long imageSize() const { return m_imageSize.load(std::memory_order_relaxed); }
    /// For who knows better than the headers, which for some kernels are a guess. Others may be asking.
    void moveImage(unsigned long long base, unsigned long long size) {
        m_imageBase = base;
        m_imageSize = size;
    }

    /// The range that the last question went to is asked first. Where ranges overlap, the answer
    /// depends on it, and clients know the symbols that come of it.
    bool isCodeAddress(unsigned long long address) const { return m_codeRanges.holds(address); }
    bool isDataAddress(unsigned long long address) const { return m_dataRanges.holds(address); }

    unsigned int sectionCount() const { return static_cast<unsigned int>(m_sectionHeaders.size()); }
    /// Null for an index past the table.
    Elf64_Shdr const* sectionHeader(unsigned int index) const {
        return index < m_sectionHeaders.size() ? &m_sectionHeaders[index] : nullptr;
    }
    /// The first section of that name; null if there is none.
    Elf64_Shdr const* sectionHeaderByName(char const* name) const;
    /// Never null; empty where the section has no name.
    char const* sectionName(unsigned int index) const;
    char const* sectionName(Elf64_Shdr const& header) const;
    /// The same, for as long as anybody holds it.
    SectionName heldName(Elf64_Shdr const& header) const;

    /// The data of a role, null where the file lacks it. Always null for roles held as indices.
    ISectionData* sectionData(Role role) const { return m_roles[role].shown.load(std::memory_order_acquire); }
    /// Index of a role's section; k_noSection where the file lacks it.
    unsigned int sectionIndex(Role role) const { return m_roles[role].index; }
    /// The relocation section that applies to a section; k_noSection where there is none.
    unsigned int relocationSectionOf(unsigned int index) const;

    /// Both walk only a valid helper.
    void walkProgramHeaders(IProgramHeadersCallback& callback) const;
    void walkSectionHeaders(ISectionHeadersCallback& callback) const;

    /// The bytes of a section, uncompressed; none if they lie beyond the file, and an empty block if they are flagged
    /// as compressed and, by the modern reading, can't be taken out. Throws std::bad_alloc.
    SectionBytes readSectionBytes(unsigned int index) const;

    /// Takes the symbol tables of a companion file in place of those that this file lacks. One thread at a time; others
    /// may read.
    void copySymbolTablesFrom(ElfHelper const& other);

    /// Gives a file without loadable segments its base and its code and data from two sections.
    void resetLayout(Load const& text, Load const& data);

private:
    /// Address ranges by start, with a memory of the last one that was looked at.
    class Ranges {
    public:
        bool holds(unsigned long long address) const;
        void set(unsigned long long start, unsigned long long end) { m_ends[start] = end; }
        void add(unsigned long long start, unsigned long long end) { m_ends.emplace(start, end); }
        void reset(Load const& only);

    private:
        using Ends = std::map<unsigned long long, unsigned long long>;
        Ends m_ends;
        /// Banks that share a file ask at the same time. Null: none yet.
        mutable std::atomic<Ends::value_type const*> m_last{nullptr};
    };
    using RelocationSections = SortList<unsigned long, PairItem<unsigned long, unsigned long>,
                                        ListRemover<PairItem<unsigned long, unsigned long>>>;
    struct RoleSection {
        void hold(ISectionData* section) {
            data = section;
            shown.store(section, std::memory_order_release);
        }

        SymMgrObjectPtr<ISectionData> data;
        std::atomic<ISectionData*> shown{nullptr}; ///< The same, for those who read while a table is adopted.
        unsigned int index = k_noSection;
    };
    static constexpr unsigned int k_lastDataRole = role_DebugLoc;

    bool readHeader();
    bool readProgramHeaders();
    bool readSectionHeaders();
    /// Visits each entry of a table that is not empty. False if it lies beyond the file.
    template <typename Visitor> bool walkTable(std::uint64_t offset, unsigned int count, unsigned int entrySize,
                                               unsigned int leastEntrySize, Visitor const& visit) const;
    bool placeSections(ElfHelper const* module);
    std::vector<NamedSection> namedSections(std::vector<Elf64_Shdr>& headers) const;
    bool classifySections();
    bool classifySection(unsigned int index);
    void classifyAddresses(unsigned int index);
    void indexRelocationSections();
    bool liesInOneLoad(Elf64_Shdr const& section, Elf64_Shdr const& next) const;

    /// All that is read goes through here, one thread at a time: an image may be a client's.
    bool readImage(std::uint64_t offset, std::uint64_t size, void* out) const;

    SymMgrObjectPtr<IModuleImage> m_fileImage;
    reading_t m_reading;
    mutable std::mutex m_imageLock;
    std::uint64_t m_fileSize = 0;
    Elf64_Ehdr m_header{};
    std::vector<Elf64_Shdr> m_sectionHeaders;
    std::shared_ptr<SectionBytes const> m_sectionNames; ///< Sections that clients hold share them.
    bool m_is64 = false;
    bool m_valid = false;
    bool m_isLaidOut = false;
    mutable std::atomic<bool> m_hasUnknownRelocation{false};
    std::vector<Elf64_Phdr> m_loadableHeaders;
    arch_t m_architecture = arch_Unknown;
    std::array<RoleSection, role_Count> m_roles;
    std::atomic<unsigned long long> m_imageBase{~0ULL};
    std::atomic<unsigned long long> m_imageSize{0};
    Load m_firstLoad;
    Load m_secondLoad;
    RelocationSections m_relocationSections;
    Ranges m_codeRanges;
    Ranges m_dataRanges;
};

} // namespace ORV_3_30
