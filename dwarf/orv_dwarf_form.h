// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Attribute values by their form.
#pragma once

#include "dwarf/orv_dwarf_walker.h"

#include <cstdint>

namespace ORV_3_30 {

/// Bytes of a section in memory.
struct DwarfBytes {
    unsigned char const* data = nullptr;
    std::uint64_t size = 0;
};

/// Where values of DWARF 5 lead (version 5, 7.26 to 7.29). Of one file.
struct DwarfTables {
    DwarfBytes lineStrings;       ///< .debug_line_str
    DwarfBytes stringOffsets;     ///< .debug_str_offsets
    DwarfBytes addresses;         ///< .debug_addr
    DwarfBytes rangeLists;        ///< .debug_rnglists
    DwarfBytes locationLists;     ///< .debug_loclists
    DwarfBytes supplementStrings; ///< .debug_str of the supplementary file, once that is there.
};

/// Where a unit's parts of those tables begin.
struct DwarfBases {
    std::uint64_t stringOffsets = 0;
    std::uint64_t addresses = 0;
    std::uint64_t rangeLists = 0;
    std::uint64_t locationLists = 0;
};

/// What the size and meaning of forms depend on in one unit.
struct FormContext {
    std::uint64_t unitOffset = 0;           ///< References inside a unit count from here.
    std::uint64_t loadBias = 0;             ///< Added to every address.
    unsigned char const* strings = nullptr; ///< .debug_str.
    std::uint64_t stringsSize = 0;
    unsigned int addrSize = 0;
    unsigned int version = 0;
    bool is64 = false;
    DwarfTables const* tables = nullptr; ///< Null where forms of version 5 are refused.
    DwarfBases bases;

    /// An address of the table, with the bias; 0 for one that is not there.
    std::uint64_t addressAt(std::uint64_t index) const;
    /// True for an address with the bias that a linker has put where what stood there is gone.
    bool isTombstone(std::uint64_t address) const;
};

/// A decoded value, in the normalised form that AttrBinding tells of.
struct AttrValue {
    std::uint64_t form;
    std::uint64_t value;
    unsigned char const* data;
};

/// Decodes a value. False for a form that is refused. The value of a form without one is what out held
/// before: for a flag only that it is there counts.
///
/// Indices are followed: what leads to a text comes back as one, a place in a table of lists as DW_FORM_sec_offset.
/// With the modern reading texts of the supplementary file come back as DW_FORM_strp, references into it as
/// DW_FORM_GNU_ref_alt. A value that stands in the abbreviation is not read here.
bool readForm(DwarfWalker& walker, FormContext const& context, std::uint64_t form, AttrValue& out);

/// True for a form whose value takes no bytes of an entry.
bool isWithoutBytes(std::uint64_t form);
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
