// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Where a local variable lives, for the handful of forms that one relative to a frame has (DWARF version 4,
/// 2.5 and 2.6). No evaluator of expressions: only the first operation of one counts.
#pragma once

#include "dwarf/orv_dwarf_unit.h"
#include "orv/orv_stackframe.h"

namespace ORV_3_30 {

/// The frame that is asked about.
struct StackFrame {
    unsigned long long pc;
    IStackFrameContext& context;
    std::uint64_t base; ///< What DW_OP_fbreg counts from.
};

/// The address that a location gives in a frame: of a location list the entry for pc, of a block its first
/// operation. search: pays for the list, which many variables may share. 0 for other forms, DW_FORM_exprloc among them,
/// without an entry, and for other operations.
std::uint64_t locationIn(DwarfUnit& unit, AttrValue const& location, StackFrame const& frame, Budget& search);

} // namespace ORV_3_30
