// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Raw symbols of an ELF file (System V ABI, "Symbol Table").
#pragma once

#include "format/orv_elf_helper.h"
#include "format/orv_raw_symbol.h"

#include <cstdint>

namespace ORV_3_30 {

/// Walks a symbol section, and passes over what is no symbol of the module: undefined and common
/// ones, foreign bindings and types, kinds that are not wanted, and addresses in no code or data.
class ElfSymbolReader {
public:
    /// Whether symbols outside the code and the data that the module has in memory count.
    enum class Places { InMemory, Any };
    /// kinds: a mask; untyped symbols come along with any. Both sections must be there. entries: how many to look at.
    ElfSymbolReader(ElfHelper const& helper, ElfHelper::Role symbols, ElfHelper::Role strings, unsigned int kinds,
                    std::uint64_t entries = ~0ULL)
        : ElfSymbolReader(helper, *helper.sectionData(symbols), *helper.sectionData(strings), kinds, entries) {}
    /// The same over tables that lie elsewhere than in a section of the file.
    ElfSymbolReader(ElfHelper const& helper, ISectionData& symbols, ISectionData& strings, unsigned int kinds,
                    std::uint64_t entries = ~0ULL, Places places = Places::InMemory);

    /// Entries to look at.
    std::uint64_t count() const { return m_size / m_entrySize; }
    /// The next accepted symbol; false at the end. Its name is null where it lies outside the strings.
    bool next(RawSymbol& out);

private:
    /// False for an entry that is passed over.
    bool accept(Elf64_Sym const& entry, RawSymbol& out) const;

    ElfHelper const& m_helper;
    unsigned int m_kinds;
    Places m_places;
    unsigned char const* m_entries;
    std::uint64_t m_entrySize;
    std::uint64_t m_size; ///< Of the entries to look at.
    std::uint64_t m_position = 0;
    char const* m_names;
    std::uint64_t m_namesSize;
    unsigned long long m_delta;
};

/// Reads one entry, in the file's class, into the 64-bit form. False if it lies outside the bytes.
bool readElfSymbol(bool is64, unsigned char const* data, std::uint64_t size, std::uint64_t position, Elf64_Sym& out);

} // namespace ORV_3_30
