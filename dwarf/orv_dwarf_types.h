// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a type comes to for a variable of it: its size, and whether it is an integer or a structure.
#pragma once

#include "dwarf/orv_dwarf_unit.h"

namespace ORV_3_30 {

/// False for a type without a known size, and for one that leads back to itself. Answers are kept by the
/// unit. To be called under the load locks.
/// asking: the unit whose variable it is; its language goes for what stands in units without one.
bool lookUpType(DwarfUnit& asking, DwarfPlace const& type, Budget& search, TypeInfo& out);

} // namespace ORV_3_30
