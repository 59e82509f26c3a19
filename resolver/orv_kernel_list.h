// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The text of a kernel's list of symbols, as nm(1) writes "System.map" and the kernel "/proc/kallsyms": in each line
/// an address of 8 or 16 hexadecimal digits, a letter for the type, a name.
///
///     KernelListReader list(path, 4096);
///     KernelListLine line;
///     while (!list.isAtEnd() && list.readAddress(is64, line.address) && list.readSymbol(line)) { ...;
///     list.finishLine(); }
#pragma once

#include "image/orv_file.h"

#include <string>
#include <vector>

namespace ORV_3_30 {

struct KernelListLine {
    unsigned long long address = 0;
    char type = '\0';
    std::string name;
};

/// Reads on and on; a file may be a stream of unknown length.
class KernelListReader {
public:
    KernelListReader(char const* path, std::size_t bufferSize) : m_file(path), m_buffer(bufferSize) {}

    bool isOpen() const { return m_file.status() == fosOK; }
    /// Not where the file can't be read any further: what is read next fails there.
    bool isAtEnd() { return peek() == k_noCharacter && !m_isBroken; }
    /// False unless all its digits are there.
    bool readAddress(bool is64, unsigned long long& out);
    /// Type and name, and the white space behind both, be it the line's end or not. False if one is missing. What
    /// stands behind a NUL of the name is passed over.
    bool readSymbol(KernelListLine& line);
    /// The line tells of a loadable module's symbol, whose name in brackets comes next.
    bool isOfModule() { return peek() == '['; }
    /// Passes over what follows a name in its line.
    void finishLine();

private:
    static constexpr int k_noCharacter = -1;

    int peek() { return m_at < m_end || refill() ? m_buffer[m_at] : k_noCharacter; }
    bool refill();
    bool readDigits(unsigned long long& out);
    /// True if it passed over a line's end.
    bool skipSpace();

    File m_file;
    std::vector<unsigned char> m_buffer;
    std::size_t m_at = 0;
    std::size_t m_end = 0;
    bool m_isBroken = false;
    bool m_isInLine = false; ///< The line that was read last has something behind its name.
};

} // namespace ORV_3_30
