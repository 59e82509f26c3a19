// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Location lists (DWARF version 4, 2.6.2; version 5, 2.6.2 and 7.7.3).
#pragma once

#include "dwarf/orv_dwarf_unit.h"

namespace ORV_3_30 {

/// Finds the entry for pc in the list of a unit at an offset of its section, which the unit's version tells. search:
/// pays for the entries, as many variables may share a list. False if there is none, which is no damage: the variable
/// is nowhere at that pc.
bool findLocation(DwarfUnit& unit, AttrValue const* locOffsetAttr, unsigned long long pc, Budget& search,
                  DwarfBytes& out);

} // namespace ORV_3_30
