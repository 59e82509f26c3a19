// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Range lists (DWARF version 4, 2.17.3).
#pragma once

#include "dwarf/orv_dwarf_unit.h"

#include <utility>
#include <vector>

namespace ORV_3_30 {

using AddressPairs = std::vector<std::pair<unsigned long long, unsigned long long>>;

/// Reads the list that an attribute names into pairs of start and end. Returns the lowest address; 0 if
/// the list lies outside its section. The base override, if not null, is for units of one compiler,
/// which select a base in inlined code and then go on with whole addresses.
std::uint64_t readRanges(DwarfUnit const& unit, AttrValue const* rangesAttr, std::uint64_t const* baseOverride,
                         AddressPairs& out);
/// The same; another budget pays, one for each pair.
std::uint64_t readRanges(DwarfUnit const& unit, AttrValue const* rangesAttr, std::uint64_t const* baseOverride,
                         AddressPairs& out, Budget& budget);

/// The range that low_pc and high_pc stand for, either of which may be null. False if both are, or if the end lies
/// below the start.
bool rangeOfEntry(AttrValue const* low, AttrValue const* high, unsigned long long& outLow, unsigned long long& outHigh);

} // namespace ORV_3_30
