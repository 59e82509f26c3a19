// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Extents of units, sorted, and those over each address by a sweep.
#include "dwarf/orv_dwarf_extents.h"

#include "dwarf/orv_dwarf_ranges.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

struct Extent {
    unsigned long long start;
    unsigned long long end;
    std::size_t unit;
};

AddressPairs extentsOf(DwarfUnit& unit) {
    DieAttributes own;
    own.clear();
    unit.readEntry(unit.header().firstDie, own);
    AddressPairs pairs;
    unsigned long long low = 0;
    unsigned long long high = 0;
    if (AttrValue const* const list = own.get(DieAttributes::slot_Ranges)) {
        readRanges(unit, list, nullptr, pairs);
    } else if (own.has(DieAttributes::slot_HighPc) &&
               rangeOfEntry(own.get(DieAttributes::slot_LowPc), own.get(DieAttributes::slot_HighPc), low, high)) {
        pairs.emplace_back(low, high);
    }
    return pairs;
}

} // namespace

std::vector<bool> unitsNeeded(DwarfReader& reader, std::set<unsigned long long> const& addresses) {
    std::vector<bool> needed(reader.units().size());
    std::vector<Extent> extents;
    for (std::size_t unit = 0; unit < needed.size(); ++unit) {
        AddressPairs const pairs = extentsOf(*reader.units()[unit]);
        needed[unit] = pairs.empty();
        for (auto const& [start, end] : pairs) {
            extents.push_back({start, end, unit});
        }
    }
    std::sort(extents.begin(), extents.end(), [](Extent const& a, Extent const& b) { return a.start < b.start; });
    std::vector<Extent> open; // that begin at or below the address, and may hold a later one
    std::size_t next = 0;
    for (unsigned long long const address : addresses) {
        for (; next < extents.size() && extents[next].start <= address; ++next) {
            open.push_back(extents[next]);
        }
        if (next != 0) {
            needed[extents[next - 1].unit] = true;
        }
        auto const isBehind = [&](Extent const& extent) { return extent.end <= address; };
        open.erase(std::remove_if(open.begin(), open.end(), isBehind), open.end());
        for (Extent const& extent : open) {
            needed[extent.unit] = true;
        }
    }
    return needed;
}

} // namespace ORV_3_30
