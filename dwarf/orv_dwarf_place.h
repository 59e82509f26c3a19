// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Where an entry stands. An offset alone does not tell: a file and its supplementary file (DWARF version 5, 7.3.6)
/// both count from 0.
#pragma once

#include <cstdint>

namespace ORV_3_30 {

class DwarfUnit;

struct DwarfPlace {
    DwarfUnit* unit = nullptr; ///< Null for no entry.
    std::uint64_t offset = 0;  ///< In .debug_info of the unit's file.

    explicit operator bool() const { return unit != nullptr; }
    friend bool operator==(DwarfPlace const& a, DwarfPlace const& b) {
        return a.unit == b.unit && a.offset == b.offset;
    }
};

} // namespace ORV_3_30
