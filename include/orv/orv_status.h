// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Status values, the one way in which the library tells success from failure.
///
///     status_t status = manager->loadSymbolsFromModule(name, nullptr, bank, arch_Unknown, false, "");
///     if (failed(status)) std::cerr << name << ": " << status << '\n';
#pragma once

#include "orv/orv_export.h"

#include <iosfwd>

namespace ORV_3_30 {

/// Result of an operation. Bit 28 set means failure; the two success values have it clear.
/// The numbering has a hole at 0x10000013. Clients compare the values, so they never move.
enum status_t : unsigned int {
    status_Ok = 0x00000000,
    status_False = 0x00000001, ///< Success with a negative answer: nothing is there.
    status_Fail = 0x10000001,
    status_NotImplemented = 0x10000002,
    status_OutOfMemory = 0x10000003,
    status_InvalidArg = 0x10000004,
    status_NotSupported = 0x10000005,
    status_InvalidPointer = 0x10000006,
    status_CantCreateFile = 0x10000007,
    status_CantDeleteFile = 0x10000008,
    status_CantOpenFile = 0x10000009,
    status_CantCloseFile = 0x1000000A,
    status_CantWriteFile = 0x1000000B,
    status_CantReadFile = 0x1000000C,
    status_BadFileFormat = 0x1000000D,
    status_BadDebugInfo = 0x1000000E,
    status_NoDebugInfo = 0x1000000F,
    status_NoPdbFile = 0x10000010,
    status_NoPdbReader = 0x10000011,
    status_NotFound = 0x10000012,
    status_FileChanged = 0x10000014,
    status_FileNotExist = 0x10000015,
    status_UnknownProperty = 0x10000016,
    status_EmptyFileName = 0x10000017,
    status_NotInitialized = 0x10000018,
    status_UnknownFileFormat = 0x10000019,
    status_UnsupportedFileVersion = 0x1000001A
};

/// True for a failure. status_False is a success and gives false.
constexpr bool failed(status_t status) { return (static_cast<unsigned int>(status) & 0x10000000U) != 0; }

/// The text of a status as a constant string, its two double quotes included; a value without a
/// text gives "<Unknown status>", which has none.
ORV_API char const* toUString(status_t status);

/// Writes toUString(status).
ORV_API std::ostream& operator<<(std::ostream& out, status_t status);

} // namespace ORV_3_30
