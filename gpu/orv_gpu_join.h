// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The lines of a QDC kernel's machine code, out of two lists that each tell half of it.
#pragma once

#include "gpu/orv_gpu_parser.h"

#include <utility>

namespace ORV_3_30 {

/// Pairs of an instruction of the virtual machine and where in the machine code it begins.
using InstructionMap = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

/// miraLineInfo: by instruction, which stands as the address. Of lines of one instruction the first counts. What is
/// appended to out begins where the code of another line does. status_Ok; status_Fail for an empty list, lines that are
/// not in the order of their instructions, or offsets that do not grow.
status_t joinLines(std::vector<VexLineEntry> miraLineInfo, InstructionMap const& isaLineInfo,
                   std::vector<VexLineEntry>& out);
/// Whether lines are not in the order of their instructions.
bool areInterleaved(std::vector<VexLineEntry> const& miraLineInfo);

} // namespace ORV_3_30
