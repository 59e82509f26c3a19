// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Entries of call frame information: what functions have in common, and what each one has (DWARF version 5, 6.4.1;
/// LSB Core, "Exception Frames").
///
///     for (std::uint64_t at = 0; nextFrameEntry(section, at, entry);) {
///         if (!entry.isCommon && readCommon(section, entry.common, common) && readFunction(section, entry, common, f))
#pragma once

#include "dwarf/orv_dwarf_form.h"

namespace ORV_3_30 {

/// A section of either kind. Addresses in it come to those of the module.
struct FrameSection {
    DwarfBytes bytes;
    std::uint64_t address = 0;  ///< Of its first byte, in the module.
    std::uint64_t loadBias = 0; ///< Added to addresses that stand in it as they are.
    std::uint64_t dataBase = 0; ///< What pointers relative to data count from; 0 where nobody knows.
    unsigned int addrSize = 8;
    bool isForExceptions = false; ///< .eh_frame, not .debug_frame.
};

/// An entry as far as all have it.
struct FrameEntry {
    std::uint64_t at;     ///< Of its first byte in the section.
    std::uint64_t body;   ///< Behind the length and what says whose it is.
    std::uint64_t end;    ///< Behind it, in the section at the most.
    std::uint64_t common; ///< Of a function's: where the entry stands that it shares with others.
    bool isCommon;
};

/// What functions share.
struct FrameCommon {
    std::uint64_t program; ///< Where the instructions begin that all of them start with.
    std::uint64_t end;
    std::uint64_t codeFactor;
    std::int64_t dataFactor;
    unsigned int encoding; ///< Of addresses in what functions have.
    unsigned int addrSize;
    bool isAugmented; ///< Functions have bytes of their own for what the format does not know, behind their length.
};

/// What one function has.
struct FrameFunction {
    std::uint64_t start;
    std::uint64_t end;
    std::uint64_t program; ///< Where its instructions begin.
    std::uint64_t programEnd;
};

/// Reads the entry at an offset and moves behind it. False at the end, and where the section breaks off, with the
/// offset in front of what is broken.
bool nextFrameEntry(FrameSection const& section, std::uint64_t& at, FrameEntry& out);
/// False for a version or an augmentation that is not known. Costs the same whatever the bytes are.
bool readCommon(FrameSection const& section, std::uint64_t at, FrameCommon& out);
/// False for an encoding that is not known, and for a function without code.
bool readFunction(FrameSection const& section, FrameEntry const& entry, FrameCommon const& common, FrameFunction& out);
/// An encoded address; false where it can't be told.
bool readFramePointer(FrameSection const& section, FrameCommon const& common, DwarfWalker& walker, std::uint64_t& out);

} // namespace ORV_3_30
