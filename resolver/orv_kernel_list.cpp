// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Reads a list of symbols character by character out of a buffer.
#include "resolver/orv_kernel_list.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

bool isSpace(int character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

/// -1 for what is none.
int hexDigit(int character) {
    if (character >= '0' && character <= '9') {
        return character - '0';
    }
    int const letter = character | ('a' - 'A');
    return character != -1 && letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

} // namespace

bool KernelListReader::refill() {
    std::uint64_t const count = m_file.read(m_buffer.size(), m_buffer.data());
    m_at = 0;
    m_isBroken = count == k_fileError;
    m_end = m_isBroken ? 0 : count;
    return m_end != 0;
}

bool KernelListReader::skipSpace() {
    bool isLineEnd = false;
    while (isSpace(peek())) {
        isLineEnd |= m_buffer[m_at] == '\n';
        ++m_at;
    }
    return isLineEnd;
}

bool KernelListReader::readDigits(unsigned long long& out) {
    constexpr unsigned int k_digits = 8;
    out = 0;
    for (unsigned int i = 0; i < k_digits; ++i) {
        int const digit = hexDigit(peek());
        if (digit < 0) {
            return false;
        }
        out = out << 4 | static_cast<unsigned int>(digit);
        ++m_at;
    }
    return true;
}

bool KernelListReader::readAddress(bool is64, unsigned long long& out) {
    unsigned long long low = 0;
    if (!readDigits(out) || (is64 && !readDigits(low))) {
        return false;
    }
    out = is64 ? out << 32 | low : out;
    return true;
}

bool KernelListReader::readSymbol(KernelListLine& line) {
    skipSpace();
    if (peek() == k_noCharacter) {
        return false;
    }
    line.type = static_cast<char>(m_buffer[m_at++]);
    skipSpace();
    line.name.clear();
    bool const isNamed = peek() != k_noCharacter;
    for (bool isText = true; peek() != k_noCharacter && !isSpace(peek());) {
        unsigned char const* const begin = m_buffer.data() + m_at;
        unsigned char const* const bufferEnd = m_buffer.data() + m_end;
        unsigned char const* const end = std::find_if(begin, bufferEnd, isSpace);
        unsigned char const* const textEnd = isText ? std::find(begin, end, '\0') : begin;
        line.name.append(reinterpret_cast<char const*>(begin), static_cast<std::size_t>(textEnd - begin));
        isText = textEnd == end;
        m_at += static_cast<std::size_t>(end - begin);
    }
    m_isInLine = !skipSpace();
    return isNamed;
}

void KernelListReader::finishLine() {
    while (m_isInLine && peek() != k_noCharacter) {
        m_isInLine = m_buffer[m_at++] != '\n';
    }
    skipSpace();
}

} // namespace ORV_3_30
