// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Views by the index of their unit, or by the unit. A token is an offset; above those bits, which no section is large
// enough to need, it tells the file.
#include "dwarf/orv_dwarf_views.h"

#include "dwarf/orv_dildwarf.h"

namespace ORV_3_30 {
namespace {

constexpr std::uint64_t k_inSupplement = std::uint64_t{1} << 63;
/// Above them stands which skeleton a split unit belongs to, from 1.
constexpr unsigned int k_offsetBits = 40;
constexpr std::uint64_t k_offsetMask = (std::uint64_t{1} << k_offsetBits) - 1;

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
    DwarfUnit& own = unit.skeleton() != nullptr ? *unit.skeleton() : unit;
    if (&own.reader() == &m_loader->reader()) {
        return *m_units[own.header().index];
    }
    std::lock_guard<std::mutex> const guard(m_lock);
    View& view = m_supplement[&unit];
    if (!view) {
        view = new DWARFCompilationUnit(*m_loader, unit);
    }
    return *view;
}

std::uint64_t UnitViews::tokenOf(DwarfPlace const& place) const {
    if (DwarfUnit const* const skeleton = place.unit->skeleton()) {
        return (skeleton->header().index + 1) << k_offsetBits | place.offset;
    }
    return &place.unit->reader() == &m_loader->reader() ? place.offset : place.offset | k_inSupplement;
}

DwarfPlace UnitViews::placeOf(std::uint64_t token) const {
    DwarfReader const& main = m_loader->reader();
    if ((token & k_inSupplement) != 0) {
        std::uint64_t const offset = token & ~k_inSupplement;
        return {main.supplement()->findUnitByOffset(offset), offset};
    }
    if (std::uint64_t const skeleton = token >> k_offsetBits) {
        return {main.units()[skeleton - 1]->split(), token & k_offsetMask};
    }
    return {main.findUnitByOffset(token), token};
}

} // namespace ORV_3_30
