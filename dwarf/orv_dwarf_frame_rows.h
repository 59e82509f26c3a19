// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The rule for the canonical frame address at an address of a function (DWARF version 5, 6.4.2 and 6.4.3).
#pragma once

#include "dwarf/orv_dwarf_frame_entry.h"

namespace ORV_3_30 {

/// How the canonical frame address is had: a register and an offset, or an expression.
struct FrameRule {
    enum Kind : unsigned char { kind_None, kind_Register, kind_Expression };
    Kind kind;
    std::uint64_t registerNumber;
    std::int64_t offset;
    DwarfBytes expression;
};

/// Runs both programs up to pc, which the function holds. Other registers' rules are passed over. One pass:
/// instructions only go on. False for an instruction that is not known, and for damaged ones.
bool runFramePrograms(FrameSection const& section, FrameCommon const& common, FrameFunction const& function,
                      std::uint64_t pc, FrameRule& out);

} // namespace ORV_3_30
