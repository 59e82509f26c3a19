// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a module says of its companion: the build id note and .gnu_debuglink.
#pragma once

#include "format/orv_section.h"

#include <cstdint>
#include <string>

namespace ORV_3_30 {

class ISectionData;

/// The first note of .note.gnu.build-id (System V ABI, "Note Section") in lower-case hexadecimal digits. The
/// length counts rounded up to 4 bytes on both sides of a comparison, padding included. False, and out untouched,
/// for anything that is no such note.
bool readBuildId(ISectionData* section, std::string& out);

/// A file name that ends with a zero byte, and at the next multiple of 4 the CRC-32 of the file.
struct DebugLink {
    std::string name;
    std::uint64_t crc = 0;
};
/// Empty, with CRC 0, for a section that is broken.
DebugLink readDebugLink(ISectionData& section);

/// CRC-32 of a file's bytes, of what could be read; 0 if nothing could.
std::uint64_t fileCrc(char const* path);

} // namespace ORV_3_30
