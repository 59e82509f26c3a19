// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Reads a list of symbols character by character out of a buffer.
#include "resolver/orv_kernel_list.h"

#include <charconv>

namespace ORV_3_30 {
namespace {

bool isSpace(int character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

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
    char digits[8];
    for (char& digit : digits) {
        if (peek() == k_noCharacter) {
            return false;
        }
        digit = static_cast<char>(m_buffer[m_at++]);
    }
    auto const [end, error] = std::from_chars(std::begin(digits), std::end(digits), out, 16);
    return error == std::errc() && end == std::end(digits);
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
    for (bool isText = true; peek() != k_noCharacter && !isSpace(peek()); ++m_at) {
        isText = isText && m_buffer[m_at] != '\0';
        if (isText) {
            line.name += static_cast<char>(m_buffer[m_at]);
        }
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
