// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the relocations of data do, by processor, and how a field is changed by one.
///
///     RelocationKind kind;
///     if (findRelocationKind(arch_Riscv64, R_RISCV_ADD32, kind)) applyRelocation(bytes, size, offset, kind, value);
#pragma once

#include "orv/orv_moduleimage.h"

#include <cstdint>

namespace ORV_3_30 {

enum class RelocationOperation : unsigned char {
    Store, ///< The value takes the field's place. Where addends stand in the fields, it is added.
    Add,
    Subtract,
    Set6, ///< The low six bits of a byte; what stands above them stays.
    Subtract6,
    SetUleb128, ///< A number of as many bytes as it has, the last of which is the first without the high bit.
    SubtractUleb128,
};

struct RelocationKind {
    RelocationOperation operation = RelocationOperation::Store;
    unsigned char width = 0; ///< Bytes of the field; 0: nothing happens, or the field tells.
    bool isRelative = false; ///< The value counts from the field.
};

/// False for one that doesn't occur in data, or that nobody knows.
bool findRelocationKind(arch_t arch, std::uint64_t type, RelocationKind& out);

/// Changes the field at an offset. Nothing happens if it does not lie in the bytes.
void applyRelocation(unsigned char* bytes, std::uint64_t size, std::uint64_t offset, RelocationKind const& kind,
                     std::uint64_t value);

} // namespace ORV_3_30
