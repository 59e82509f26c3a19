// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Symbol tables, entry by entry (System V ABI, "Symbol Table"); a table of types says which are taken.
#include "format/orv_elf_symbols.h"

#include "core/orv_cursor.h"
#include "format/orv_elf_machines.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

constexpr unsigned int k_machineWithWideSymbols = 31;
constexpr unsigned int k_wideSymbolExtra = 4;

/// What becomes of a symbol type. Types without a row are always passed over.
struct TypeRule {
    unsigned int type;
    unsigned int neededKinds; ///< One of these must be wanted.
    symbol_kind_t kind;
    bool mayLieInData;
};

constexpr TypeRule k_typeRules[] = {
    {STT_FUNC, symbol_kind_Function | symbol_kind_FunctionAlt, symbol_kind_Function, false},
    {STT_OBJECT, symbol_kind_DataAlt | symbol_kind_Data, symbol_kind_Data, true},
    {STT_NOTYPE, symbol_kind_Other, symbol_kind_Other, true},
};

} // namespace

bool readElfSymbol(bool is64, unsigned char const* data, std::uint64_t size, std::uint64_t position, Elf64_Sym& out) {
    ByteCursor cursor(data, size);
    if (!cursor.seek(position) || !cursor.read(out.st_name)) {
        return false;
    }
    if (is64) {
        return cursor.read(out.st_info) && cursor.read(out.st_other) && cursor.read(out.st_shndx) &&
               cursor.read(out.st_value) && cursor.read(out.st_size);
    }
    return cursor.readWord(4, out.st_value) && cursor.readWord(4, out.st_size) && cursor.read(out.st_info) &&
           cursor.read(out.st_other) && cursor.read(out.st_shndx);
}

ElfSymbolReader::ElfSymbolReader(ElfHelper const& helper, ISectionData& symbols, ISectionData& strings,
                                 unsigned int kinds, std::uint64_t entries, Places places)
    : m_helper(helper), m_kinds(kinds | symbol_kind_Other), m_places(places), m_entries(symbols.data()),
      m_entrySize((helper.is64() ? sizeof(Elf64_Sym) : sizeof(Elf32_Sym)) +
                  (helper.header().e_machine == k_machineWithWideSymbols ? k_wideSymbolExtra : 0)),
      m_size(std::min<std::uint64_t>(entries, symbols.size() / m_entrySize) * m_entrySize),
      m_names(reinterpret_cast<char const*>(strings.data())), m_namesSize(strings.size()),
      m_delta(symbols.addressDelta()) {}

bool ElfSymbolReader::next(RawSymbol& out) {
    Elf64_Sym entry{};
    while (m_names != nullptr && m_entries != nullptr && contains(m_size, m_position, m_entrySize)) {
        bool const isRead = readElfSymbol(m_helper.is64(), m_entries, m_size, m_position, entry);
        m_position += m_entrySize;
        if (isRead && accept(entry, out)) {
            return true;
        }
    }
    return false;
}

bool ElfSymbolReader::accept(Elf64_Sym const& entry, RawSymbol& out) const {
    unsigned int const binding = ELF64_ST_BIND(entry.st_info);
    if (entry.st_name == 0 || binding > STB_WEAK || entry.st_shndx == SHN_UNDEF || entry.st_shndx == SHN_COMMON) {
        return false;
    }
    unsigned int const type = ELF64_ST_TYPE(entry.st_info);
    for (TypeRule const& rule : k_typeRules) {
        if (rule.type != type) {
            continue;
        }
        unsigned long long const address = m_delta + entry.st_value;
        bool const isPlaced = m_places == Places::Any || m_helper.isCodeAddress(address) ||
                              (rule.mayLieInData && m_helper.isDataAddress(address));
        if ((m_kinds & rule.neededKinds) == 0 || !isPlaced) {
            return false;
        }
        out.name = entry.st_name < m_namesSize ? m_names + entry.st_name : nullptr;
        if (m_helper.reading() == reading_Modern && isMappingSymbol(m_helper.architecture(), entry, out.name)) {
            return false;
        }
        out.address = address;
        out.size = entry.st_size;
        out.visibility = binding == STB_LOCAL ? symbol_visibility_Local : symbol_visibility_Global;
        out.kind = rule.kind;
        return true;
    }
    return false;
}

} // namespace ORV_3_30
