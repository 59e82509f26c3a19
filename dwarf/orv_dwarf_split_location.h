// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Location lists of split units before DWARF 5.
#pragma once

#include "dwarf/orv_dwarf_unit.h"

namespace ORV_3_30 {

/// Finds the entry that holds pc, from where a walker stands in .debug_loc.dwo. False if none does.
bool findSplitLocation(DwarfUnit const& unit, DwarfWalker list, unsigned long long pc, Budget& search,
                       DwarfBytes& expression);

} // namespace ORV_3_30
