// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Relocation sections of an ELF file (System V ABI, "Relocation"), and the thunks that they reveal.
#pragma once

#include "core/orv_cursor.h"
#include "format/orv_elf_relocation_kinds.h"
#include "format/orv_elf_symbols.h"

#include <cstdint>
#include <vector>

namespace ORV_3_30 {

/// What is to be added where in one section, by offset.
class RelocationAddends : public SymMgrObjectImpl {
public:
    RelocationAddends(bool is64, unsigned long long relocationSection)
        : m_wordSize(is64 ? 8 : 4), m_relocationSection(relocationSection) {}

    struct Entry {
        std::uint64_t offset;
        std::uint64_t nameOffset;
        std::uint64_t value;  ///< The symbol's value plus the addend.
        unsigned int ordinal; ///< Number in the relocation section, skipped ones counted.
        RelocationKind kind;
        ISectionData* strings; ///< May be null. Lives as long as the addends.
    };

    /// Reads the next entry of the relocation section; false if too few bytes remain.
    virtual bool readEntry(ByteCursor& reader, std::uint64_t& offset, std::uint64_t& info, std::uint64_t& addend) = 0;
    /// Patches the bytes of the section that the entries apply to. Nothing happens if the field lies
    /// outside them.
    virtual void apply(unsigned char* bytes, std::uint64_t size, Entry const& entry) = 0;

    std::vector<Entry> const& entries() const { return m_entries; }
    unsigned long long relocationSection() const { return m_relocationSection; }
    /// Of entries for one offset.
    enum class SameOffset { FirstCounts, AllCount };
    void setEntries(std::vector<Entry> entries, SymMgrObjectPtr<ISectionData> const& strings, SameOffset sameOffset);

protected:
    unsigned int wordSize() const { return m_wordSize; }

private:
    unsigned int m_wordSize;
    std::vector<Entry> m_entries;
    SymMgrObjectPtr<ISectionData> m_strings; ///< Of all entries.
    unsigned long long m_relocationSection;
};

/// The addends of a section of the file; null where no relocation section applies to it.
SymMgrObjectPtr<RelocationAddends> relocationAddends(ElfHelper const& helper, unsigned int section);

/// Gives each stub of the procedure linkage table a symbol with the name of its import.
class PLTEntryCallBack final {
public:
    PLTEntryCallBack(ISymbolCallBack& symbols, unsigned long long firstStub)
        : m_symbols(symbols), m_firstStub(firstStub) {}

    void addend(RelocationAddends::Entry const& entry);

private:
    ISymbolCallBack& m_symbols;
    unsigned long long m_firstStub;
};

} // namespace ORV_3_30
