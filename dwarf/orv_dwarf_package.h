// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Packages of split units (DWARF version 5, 7.3.5, and GNU's forerunner): which part of each section is a unit's.
///
///     DwarfPackage package(index, size);
///     if (DwarfPackage::Parts const* parts = package.find(id)) ...
#pragma once

#include "dwarf/orv_dwarf_walker.h"

#include <cstdint>
#include <unordered_map>

namespace ORV_3_30 {

/// Not changed once it is made.
class DwarfPackage {
public:
    /// Part of a section. Whether it lies in the section is not known here.
    struct Part {
        std::uint64_t offset = 0;
        std::uint64_t size = 0;
    };
    /// One without a size is none.
    struct Parts {
        Part info;
        Part abbrevs;
        Part stringOffsets;
        Part rangeLists;
        Part locations; ///< Of either kind.
    };

    /// Reads where rows stand. isValid is false for an index of another version, and for one that does not lie in its
    /// section.
    DwarfPackage(unsigned char const* index, std::uint64_t size);
    bool isValid() const { return m_isValid; }
    /// False for a unit that is not in the package. Of several of one id the first is found.
    bool find(std::uint64_t id, Parts& out) const;

private:
    static constexpr unsigned int k_mostColumns = 16;

    bool readHeader();
    void readSlots();
    std::uint32_t wordAt(std::uint64_t offset) const;

    unsigned char const* m_index;
    std::uint64_t m_size;
    unsigned int m_version = 0;
    std::uint32_t m_columns = 0;
    std::uint32_t m_units = 0;
    std::uint32_t m_slots = 0;
    std::uint64_t m_columnsAt = 0; ///< The row of section ids. Behind it are those of offsets, then those of sizes.
    bool m_isValid = false;
    std::unordered_map<std::uint64_t, std::uint32_t> m_rows; ///< By id; from 0.
};

} // namespace ORV_3_30
