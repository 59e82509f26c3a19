// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The byte walker over a debug section.
///
///     DwarfWalker walker(data, size, 8);
///     unsigned long long code = walker.unsignedLeb();
///
/// A plain value, copied freely. It never leaves its bytes: what lies beyond them reads as described at
/// each operation. Values are little-endian.
#pragma once

#include "orv/orv_status.h"

#include <cstdint>
#include <cstring>

namespace ORV_3_30 {

class DwarfWalker {
public:
    DwarfWalker() = default;
    DwarfWalker(unsigned char const* data, std::uint64_t size, unsigned int addrSize)
        : m_current(data), m_base(data), m_end(data != nullptr ? data + size : nullptr), m_addrSize(addrSize) {}

    std::uint64_t offset() const { return static_cast<std::uint64_t>(m_current - m_base); }
    std::uint64_t remaining() const { return static_cast<std::uint64_t>(m_end - m_current); }
    std::uint64_t size() const { return static_cast<std::uint64_t>(m_end - m_base); }
    bool atEnd() const { return m_current == m_end; }
    unsigned char const* current() const { return m_current; }
    unsigned int addrSize() const { return m_addrSize; }
    /// A size of 0 is reported, and kept.
    void setAddrSize(unsigned int addrSize);
    void setAddrSizeQuietly(unsigned int addrSize) { m_addrSize = addrSize; }

    /// To an offset from the base; an offset behind the end goes to the end.
    void seek(std::uint64_t offset) { m_current = m_base + (offset < size() ? offset : size()); }
    void skip(std::uint64_t count) { m_current += count < remaining() ? count : remaining(); }
    /// Cuts the walker's end to an offset from the base.
    void limit(std::uint64_t offset) {
        if (offset < size()) {
            m_end = m_base + offset;
            m_current = m_current < m_end ? m_current : m_end;
        }
    }

    /// status_False, with position and out untouched, if fewer bytes are left.
    template <typename Out> status_t getUnsigned1(Out& out) { return get<std::uint8_t>(out); }
    template <typename Out> status_t getUnsigned2(Out& out) { return get<std::uint16_t>(out); }
    template <typename Out> status_t getUnsigned4(Out& out) { return get<std::uint32_t>(out); }
    template <typename Out> status_t getUnsigned8(Out& out) { return get<std::uint64_t>(out); }
    /// 4 or 8 bytes.
    status_t getOffset(bool is64, std::uint64_t& out) { return is64 ? getUnsigned8(out) : getUnsigned4(out); }

    /// Ends silently with the bytes; bits beyond the 64th wrap round.
    std::uint64_t unsignedLeb() {
        if (m_current != m_end && *m_current < 0x80) {
            return *m_current++;
        }
        return longUnsignedLeb();
    }
    /// The sign is extended where fewer than 64 bits were read.
    std::int64_t signedLeb() {
        if (m_current != m_end && *m_current < 0x80) {
            constexpr std::int64_t k_sign = 0x40;
            return (std::int64_t{*m_current++} ^ k_sign) - k_sign;
        }
        return longSignedLeb();
    }
    void skipLeb() {
        while (m_current != m_end && *m_current++ >= 0x80) {
        }
    }
    /// An address of the walker's size. Any size but 4 and 8 is reported, and gives what was read last;
    /// so do too few bytes.
    std::uint64_t address();
    /// A text that ends at a zero byte or with the bytes. All sections have a zero byte of ours behind
    /// them, so that the text may be used as it stands as long as the walker ends where its section
    /// does; elsewhere length tells.
    char const* text(std::uint64_t& length) {
        auto const* const begin = reinterpret_cast<char const*>(m_current);
        length = m_current != m_end ? ::strnlen(begin, remaining()) : 0;
        skip(length + 1);
        return begin;
    }

private:
    template <typename T, typename Out> status_t get(Out& out) {
        static_assert(sizeof(Out) >= sizeof(T));
        if (remaining() < sizeof(T)) {
            return status_False;
        }
        T value;
        std::memcpy(&value, m_current, sizeof(T)); // the host is little-endian, as the files are
        out = value;
        m_current += sizeof(T);
        return status_Ok;
    }
    std::uint64_t longUnsignedLeb();
    std::int64_t longSignedLeb();

    unsigned char const* m_current = nullptr;
    unsigned char const* m_base = nullptr;
    unsigned char const* m_end = nullptr;
    unsigned int m_addrSize = 0;
    std::uint64_t m_lastAddress = 0;
};

} // namespace ORV_3_30
