// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The index of a package (DWARF version 5, 7.3.5.3; version 2 of it is GNU's). Its hash table is read once, in order:
// whatever its slots hold, each costs one step.
#include "dwarf/orv_dwarf_package.h"

#include "dwarf/orv_dwarf_constants.h"

namespace ORV_3_30 {
namespace {

constexpr std::uint64_t k_headerSize = 16;
constexpr std::uint64_t k_wordSize = 4;
constexpr std::uint64_t k_idSize = 8;
constexpr unsigned int k_gnuVersion = 2;
constexpr unsigned int k_laterVersion = 5;

} // namespace

DwarfPackage::DwarfPackage(unsigned char const* index, std::uint64_t size) : m_index(index), m_size(size) {
    m_isValid = readHeader();
    if (m_isValid) {
        readSlots();
    }
}

std::uint32_t DwarfPackage::wordAt(std::uint64_t offset) const {
    std::uint32_t word = 0;
    DwarfWalker walker(m_index, m_size, 0);
    walker.seek(offset);
    walker.getUnsigned4(word);
    return word;
}

bool DwarfPackage::readHeader() {
    DwarfWalker walker(m_index, m_size, 0);
    // A word before version 5, with it a half of one and a half of nothing: the numbers are small.
    walker.getUnsigned2(m_version);
    walker.skip(2);
    walker.getUnsigned4(m_columns);
    walker.getUnsigned4(m_units);
    if (walker.getUnsigned4(m_slots) != status_Ok || (m_version != k_gnuVersion && m_version != k_laterVersion) ||
        m_columns > k_mostColumns) {
        return false;
    }
    // Each is below 2^32, and columns few: nothing overflows.
    m_columnsAt = k_headerSize + std::uint64_t{m_slots} * (k_idSize + k_wordSize);
    std::uint64_t const tables = std::uint64_t{m_columns} * k_wordSize * (1 + 2 * std::uint64_t{m_units});
    return m_columnsAt <= m_size && tables <= m_size - m_columnsAt;
}

void DwarfPackage::readSlots() {
    DwarfWalker ids(m_index, m_size, 0);
    ids.seek(k_headerSize);
    for (std::uint32_t slot = 0; slot < m_slots; ++slot) {
        std::uint64_t id = 0;
        ids.getUnsigned8(id);
        std::uint32_t const row = wordAt(k_headerSize + m_slots * k_idSize + slot * k_wordSize);
        if (row != 0 && row <= m_units) {
            m_rows.emplace(id, row - 1);
        }
    }
}

bool DwarfPackage::find(std::uint64_t id, Parts& out) const {
    auto const found = m_rows.find(id);
    if (found == m_rows.end()) {
        return false;
    }
    out = Parts();
    std::uint64_t const rowSize = std::uint64_t{m_columns} * k_wordSize;
    std::uint64_t const offsets = m_columnsAt + rowSize * (1 + std::uint64_t{found->second});
    std::uint64_t const sizes = offsets + rowSize * m_units;
    for (std::uint32_t column = 0; column < m_columns; ++column) {
        std::uint64_t const at = column * k_wordSize;
        Part const part{wordAt(offsets + at), wordAt(sizes + at)};
        switch (wordAt(m_columnsAt + at)) {
        case DW_SECT_INFO: out.info = part; break;
        case DW_SECT_ABBREV: out.abbrevs = part; break;
        case DW_SECT_LOCLISTS: out.locations = part; break;
        case DW_SECT_STR_OFFSETS: out.stringOffsets = part; break;
        case DW_SECT_RNGLISTS: out.rangeLists = m_version == k_laterVersion ? part : Part(); break;
        default: break;
        }
    }
    return true;
}

} // namespace ORV_3_30
