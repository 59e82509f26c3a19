// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Views by the index of their unit, or by the unit. A token is an offset; its top bit, which no section is large enough
// to need, tells the file.
#include "dwarf/orv_dwarf_views.h"

#include "dwarf/orv_dildwarf.h"

namespace ORV_3_30 {
namespace {

constexpr std::uint64_t k_inSupplement = std::uint64_t{1} << 63;

} // namespace

void UnitViews::open(DWARFDebugInfoLoader& loader) {
    std::vector<View> units;
    for (auto const& unit : loader.reader().units()) {
        units.push_back(View(new DWARFCompilationUnit(loader, *unit)));
    }
    m_loader = &loader;
    m_units = std::move(units);
}

DWARFCompilationUnit& UnitViews::of(DwarfUnit& unit) {
    if (&unit.reader() == &m_loader->reader()) {
        return *m_units[unit.header().index];
    }
    std::lock_guard<std::mutex> const guard(m_lock);
    View& view = m_supplement[&unit];
    if (!view) {
        view = new DWARFCompilationUnit(*m_loader, unit);
    }
    return *view;
}

std::uint64_t UnitViews::tokenOf(DwarfPlace const& place) const {
    return &place.unit->reader() == &m_loader->reader() ? place.offset : place.offset | k_inSupplement;
}

DwarfPlace UnitViews::placeOf(std::uint64_t token) const {
    bool const isInSupplement = (token & k_inSupplement) != 0;
    DwarfReader const& reader = isInSupplement ? *m_loader->reader().supplement() : m_loader->reader();
    std::uint64_t const offset = token & ~k_inSupplement;
    return {reader.findUnitByOffset(offset), offset};
}

} // namespace ORV_3_30
