// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Attribute values by their form.
#pragma once

#include "dwarf/orv_dwarf_walker.h"

#include <cstdint>

namespace ORV_3_30 {

/// What the size and meaning of forms depend on in one unit.
struct FormContext {
    std::uint64_t unitOffset = 0;           ///< References inside a unit count from here.
    std::uint64_t loadBias = 0;             ///< Added to every address.
    unsigned char const* strings = nullptr; ///< .debug_str.
    std::uint64_t stringsSize = 0;
    unsigned int addrSize = 0;
    unsigned int version = 0;
    bool is64 = false;
};

/// A decoded value, in the normalised form that AttrBinding tells of.
struct AttrValue {
    std::uint64_t form;
    std::uint64_t value;
    unsigned char const* data;
};

/// Decodes a value. False for a form that is refused. The value of a form without one is what out held
/// before: for a flag only that it is there counts.
bool readForm(DwarfWalker& walker, FormContext const& context, std::uint64_t form, AttrValue& out);

/// At the end of a unit: true if an entry may end in front of a value of that form. False for a form that is refused,
/// and for those whose reading is checked.
bool mayBeMissing(DwarfWalker& walker, FormContext const& context, std::uint64_t form);
/// Passes over a value; false, without a move, for a form that is refused.
bool skipForm(DwarfWalker& walker, FormContext const& context, std::uint64_t form);

/// Bytes that a form takes in a unit; k_variableSize where that depends on the value, or the form is
/// refused.
constexpr unsigned int k_variableSize = ~0U;
unsigned int sizeOfForm(FormContext const& context, std::uint64_t form);

} // namespace ORV_3_30
