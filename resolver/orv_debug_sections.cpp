// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The two sections that name a companion: a note (System V ABI, "Note Section") and a link with its CRC-32.
#include "resolver/orv_debug_sections.h"

#include "core/orv_cursor.h"
#include "core/orv_trace.h"
#include "format/orv_section_data.h"
#include "image/orv_file.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <elf.h>
#include <zlib.h>

namespace ORV_3_30 {
namespace {

constexpr std::uint64_t k_alignment = 4;

std::uint64_t roundedUp(std::uint64_t value) { return (value + k_alignment - 1) / k_alignment * k_alignment; }

} // namespace

bool readBuildId(ISectionData* section, std::string& out) {
    if (!ORV_ASSERT(section != nullptr, "false")) {
        return false;
    }
    unsigned char const* const bytes = section->data();
    if (bytes == nullptr) {
        return false;
    }
    ByteCursor cursor(bytes, section->size());
    std::uint32_t nameSize = 0;
    std::uint32_t idSize = 0;
    std::uint32_t type = 0;
    if (!cursor.read(nameSize) || !cursor.read(idSize) || !cursor.read(type)) {
        return false;
    }
    std::uint64_t const nameRoom = roundedUp(nameSize);
    std::uint64_t const idRoom = roundedUp(idSize);
    bool const isBuildId = cursor.remaining() >= nameRoom + idRoom && nameRoom == sizeof(ELF_NOTE_GNU) &&
                           type == NT_GNU_BUILD_ID && idRoom != 0 &&
                           std::memcmp(bytes + cursor.position(), ELF_NOTE_GNU, sizeof(ELF_NOTE_GNU)) == 0;
    if (!isBuildId) {
        return false;
    }
    constexpr char k_digits[] = "0123456789abcdef";
    out.clear();
    unsigned char const* const id = bytes + cursor.position() + nameRoom;
    for (std::uint64_t i = 0; i < idRoom; ++i) {
        out += k_digits[id[i] >> 4];
        out += k_digits[id[i] & 0xF];
    }
    return true;
}

DebugLink readDebugLink(ISectionData& section) {
    auto const* const bytes = reinterpret_cast<char const*>(section.data());
    std::uint64_t const size = bytes != nullptr ? section.size() : 0;
    std::uint64_t const length = size != 0 ? ::strnlen(bytes, size) : 0;
    ByteCursor cursor(reinterpret_cast<unsigned char const*>(bytes), size);
    std::uint32_t crc = 0;
    if (length == size || !cursor.seek(roundedUp(length + 1)) || !cursor.read(crc)) {
        return {};
    }
    return {std::string(bytes, length), crc};
}

std::uint64_t fileCrc(char const* path) {
    File file(path);
    std::array<unsigned char, 8192> block;
    uLong crc = 0;
    // What a device gives has no end; what a file gives ends with it.
    for (std::uint64_t left = file.size(); left != 0;) {
        std::uint64_t const count = file.read(std::min<std::uint64_t>(left, block.size()), block.data());
        if (count == 0 || count == k_fileError) {
            break;
        }
        crc = ::crc32(crc, block.data(), static_cast<uInt>(count));
        left -= count;
    }
    return crc;
}

} // namespace ORV_3_30
