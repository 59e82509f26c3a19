// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The encodings of DEX files: LEB128 and MUTF-8 (Dalvik executable format, "LEB128" and "MUTF-8").
#include "support/orv_dex_writer.h"

#include <stdexcept>

namespace orv_test {

std::u16string utf16(std::string const& utf8) {
    std::u16string units;
    for (std::size_t i = 0; i < utf8.size();) {
        auto const first = static_cast<unsigned char>(utf8[i]);
        std::size_t const length = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
        if ((first & 0xC0) == 0x80 || first > 0xF4 || length > utf8.size() - i) {
            throw std::runtime_error("not UTF-8: " + utf8);
        }
        std::uint32_t point = length == 1 ? first : first & (0x7FU >> length);
        for (std::size_t k = 1; k < length; ++k) {
            point = point << 6 | (static_cast<unsigned char>(utf8[i + k]) & 0x3FU);
        }
        if (point >= 0x10000) {
            units += static_cast<char16_t>(0xD7C0 + (point >> 10));
            units += static_cast<char16_t>(0xDC00 | (point & 0x3FF));
        } else {
            units += static_cast<char16_t>(point);
        }
        i += length;
    }
    return units;
}

std::string mutf8(std::u16string const& units) {
    std::string bytes;
    for (char16_t const unit : units) {
        if (unit != 0 && unit < 0x80) {
            bytes += static_cast<char>(unit);
        } else if (unit < 0x800) {
            bytes += static_cast<char>(0xC0 | unit >> 6);
            bytes += static_cast<char>(0x80 | (unit & 0x3F));
        } else {
            bytes += static_cast<char>(0xE0 | unit >> 12);
            bytes += static_cast<char>(0x80 | (unit >> 6 & 0x3F));
            bytes += static_cast<char>(0x80 | (unit & 0x3F));
        }
    }
    return bytes;
}

void putUleb(std::string& out, std::uint32_t value) {
    for (; value >= 0x80; value >>= 7) {
        out += static_cast<char>(value | 0x80);
    }
    out += static_cast<char>(value);
}

void putSleb(std::string& out, std::int32_t value) {
    std::int64_t rest = value; // arithmetic shifts keep the sign
    for (; rest < -64 || rest > 63; rest >>= 7) {
        out += static_cast<char>((rest & 0x7F) | 0x80);
    }
    out += static_cast<char>(rest & 0x7F);
}

void alignTo(std::string& out, std::size_t alignment) {
    out.append((alignment - out.size() % alignment) % alignment, '\0');
}

void patch(std::string& out, std::uint64_t offset, std::uint64_t value, unsigned int width) {
    for (unsigned int i = 0; i < width; ++i) {
        out.at(offset + i) = static_cast<char>(value >> (8 * i));
    }
}

} // namespace orv_test
