// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Bounded reading of bytes that came from a file.
///
///     ByteCursor cursor(data, size);
///     std::uint32_t namesz = 0;
///     if (!cursor.seek(4) || !cursor.read(namesz)) return false;   // out of bounds
///
/// The cursor is a small value and never moves outside its bytes. Values are little-endian whatever
/// the host is; the files that the library reads are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace ORV_3_30 {

/// True if [offset, offset + length) lies in [0, size), without overflow.
constexpr bool contains(std::uint64_t size, std::uint64_t offset, std::uint64_t length) {
    return offset <= size && length <= size - offset;
}

class ByteCursor {
public:
    ByteCursor() = default;
    ByteCursor(unsigned char const* data, std::uint64_t size) : m_data(data), m_size(data != nullptr ? size : 0) {}

    std::uint64_t position() const { return m_position; }
    std::uint64_t size() const { return m_size; }
    /// What is not read yet: remaining() bytes.
    unsigned char const* current() const { return m_data + m_position; }
    /// A cursor over these alone.
    ByteCursor rest() const { return {current(), remaining()}; }
    std::uint64_t remaining() const { return m_size - m_position; }

    /// False, without a move, for a position behind the end.
    bool seek(std::uint64_t position) {
        if (position > m_size) {
            return false;
        }
        m_position = position;
        return true;
    }

    bool skip(std::uint64_t count) { return count <= remaining() && seek(m_position + count); }

    /// Reads an unsigned integer of its own width. False, out and position untouched, if too few
    /// bytes remain.
    template <typename T> bool read(T& out) {
        static_assert(std::is_unsigned_v<T>);
        std::uint64_t value = 0;
        bool const isRead = readBytes(sizeof(T), value);
        out = isRead ? static_cast<T>(value) : out;
        return isRead;
    }

    /// Reads an unsigned integer of 1, 2, 4 or 8 bytes into 64 bits.
    bool readWord(unsigned int width, std::uint64_t& out) {
        return readBytes(width == 1 || width == 2 || width == 4 ? width : 8, out);
    }

    /// Reads an unsigned LEB128 number of 32 bits; what it has beyond these is lost. False if the bytes end inside it,
    /// and for one of more than ten bytes, which is as long as any writer makes them.
    bool readUleb(std::uint32_t& out) {
        unsigned int shift = 0;
        bool isNegative = false;
        return readLeb(out, shift, isNegative);
    }

    /// The same for a signed one, in two's complement.
    bool readSleb(std::uint32_t& out) {
        unsigned int shift = 0;
        bool isNegative = false;
        if (!readLeb(out, shift, isNegative)) {
            return false;
        }
        out |= isNegative && shift < k_lebBits ? ~0U << shift : 0;
        return true;
    }

private:
    static constexpr unsigned int k_lebBits = 32;

    bool readLeb(std::uint32_t& out, unsigned int& shift, bool& isNegative) {
        std::uint32_t value = 0;
        unsigned int left = 10; // bytes
        for (std::uint8_t byte = 0x80; byte >= 0x80; shift += 7, --left) {
            if (left == 0 || !read(byte)) {
                return false;
            }
            value |= shift < k_lebBits ? std::uint32_t{byte & 0x7FU} << shift : 0;
            isNegative = (byte & 0x40) != 0;
        }
        out = value;
        return true;
    }

    bool readBytes(std::size_t count, std::uint64_t& out) {
        if (remaining() < count) {
            return false;
        }
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < count; ++i) {
            value |= std::uint64_t{m_data[m_position + i]} << (8 * i);
        }
        out = value;
        m_position += count;
        return true;
    }

    unsigned char const* m_data = nullptr;
    std::uint64_t m_size = 0;
    std::uint64_t m_position = 0;
};

} // namespace ORV_3_30
