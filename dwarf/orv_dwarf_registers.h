// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Which of a processor's registers a frame context knows.
#pragma once

#include "format/orv_ffl.h"
#include "orv/orv_stackframe.h"

#include <cstdint>

namespace ORV_3_30 {

/// By the numbers that the processor's supplement to the format gives them.
struct FrameRegisters {
    arch_t architecture;
    std::uint64_t stackPointer;
    std::uint64_t framePointer;
};

/// What is not here knows no register: nothing of it has a place in a frame.
constexpr FrameRegisters k_frameRegisters[] = {{arch_X86, 4, 5}, {arch_X86_64, 7, 6}, {arch_Arm, 13, 11}};

/// Null for a processor whose registers are not known.
inline FrameRegisters const* frameRegistersOf(arch_t architecture) {
    for (FrameRegisters const& registers : k_frameRegisters) {
        if (registers.architecture == architecture) {
            return &registers;
        }
    }
    return nullptr;
}

} // namespace ORV_3_30
