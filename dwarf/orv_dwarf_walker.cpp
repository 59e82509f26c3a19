// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Numbers and texts of a DWARF section, each read bounded (LEB128: DWARF version 4, 7.6).
#include "dwarf/orv_dwarf_walker.h"

#include "core/orv_trace.h"

namespace ORV_3_30 {

void DwarfWalker::setAddrSize(unsigned int addrSize) {
    if (addrSize == 0) {
        ORV_WARN("addrSize == 0 ");
    }
    m_addrSize = addrSize;
}

std::uint64_t DwarfWalker::longUnsignedLeb() {
    std::uint64_t value = 0;
    for (unsigned int shift = 0; m_current != m_end; shift += 7) {
        std::uint64_t const byte = *m_current++;
        value |= (byte & 0x7F) << (shift & 63);
        if (byte < 0x80) {
            break;
        }
    }
    return value;
}

std::int64_t DwarfWalker::longSignedLeb() {
    std::uint64_t value = 0;
    unsigned int shift = 0;
    std::uint64_t byte = 0;
    while (m_current != m_end) {
        byte = *m_current++;
        value |= (byte & 0x7F) << (shift & 63);
        // Only whether 64 bits have come matters from there on.
        shift = shift < 128 ? shift + 7 : 128 + (shift + 7) % 64;
        if (byte < 0x80) {
            break;
        }
    }
    if (shift < 64 && (byte & 0x40) != 0) {
        value |= ~std::uint64_t{0} << shift;
    }
    return static_cast<std::int64_t>(value);
}

std::uint64_t DwarfWalker::address() {
    if (m_addrSize == 8) {
        getUnsigned8(m_lastAddress);
    } else if (m_addrSize == 4) {
        getUnsigned4(m_lastAddress);
    } else {
        ORV_ASSERT(false, "false");
    }
    return m_lastAddress;
}

} // namespace ORV_3_30
