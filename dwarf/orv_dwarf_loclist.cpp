// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The entry of a list for an address: pairs as earlier versions have them, and entries of a kind (DWARF version 5,
// 7.7.3).
#include "dwarf/orv_dwarf_loclist.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_reader.h"
#include "dwarf/orv_dwarf_split_location.h"

namespace ORV_3_30 {
namespace {

constexpr std::uint64_t k_entryCost = 16;
constexpr unsigned int k_versionWithKinds = 5;

DwarfBytes bytesAt(DwarfWalker const& walker, std::uint64_t length) {
    return {walker.current(), length < walker.remaining() ? length : walker.remaining()};
}

/// Pairs of addresses that count from a base.
bool findInPairs(DwarfUnit& unit, DwarfWalker walker, unsigned long long pc, Budget& search, DwarfBytes& out) {
    unsigned int const addrSize = unit.forms().addrSize;
    std::uint64_t const selectsBase = addrSize == 4 ? 0xFFFFFFFF : ~std::uint64_t{0};
    // The classic reading takes a base that is selected as it stands.
    std::uint64_t const bias = unit.reader().isModern() ? unit.forms().loadBias : 0;
    std::uint64_t base = unit.baseAddress();
    while (walker.remaining() >= 2 * addrSize && search.spend(k_entryCost)) {
        std::uint64_t const first = walker.address();
        std::uint64_t const second = walker.address();
        if (first == 0 && second == 0) {
            return false;
        }
        if (first == selectsBase) {
            base = second + bias;
            continue;
        }
        std::uint64_t length = 0;
        if (walker.getUnsigned2(length) != status_Ok) {
            return false;
        }
        if (first + base <= pc && pc < second + base) {
            out = bytesAt(walker, length);
            return true;
        }
        walker.skip(length);
    }
    return false;
}

/// Entries of version 5, each of a kind.
class KindsOfEntries {
public:
    KindsOfEntries(DwarfUnit& unit, DwarfWalker walker, unsigned long long pc)
        : m_forms(unit.forms()), m_walker(walker), m_base(unit.baseAddress()), m_pc(pc) {}

    bool find(Budget& search, DwarfBytes& out) {
        bool hasDefault = false;
        std::uint8_t kind = DW_LLE_end_of_list;
        while (m_walker.getUnsigned1(kind) == status_Ok && kind != DW_LLE_end_of_list && search.spend(k_entryCost)) {
            m_holdsPc = false;
            if (!readEntry(kind)) {
                return false; // nobody knows how long it is
            }
            if (!m_hasExpression) {
                continue;
            }
            std::uint64_t const length = m_walker.unsignedLeb();
            if (m_holdsPc) {
                out = bytesAt(m_walker, length);
                return true;
            }
            if (kind == DW_LLE_default_location && !hasDefault) {
                out = bytesAt(m_walker, length);
                hasDefault = true;
            }
            m_walker.skip(length);
        }
        return hasDefault;
    }

private:
    bool readEntry(std::uint8_t kind) {
        m_hasExpression = true;
        std::uint64_t start = 0;
        switch (kind) {
        case DW_LLE_base_addressx: return base(indexed());
        case DW_LLE_base_address: return base(address());
        case DW_LLE_GNU_view_pair:
            m_walker.skipLeb();
            m_walker.skipLeb();
            m_hasExpression = false;
            return true;
        case DW_LLE_default_location: return true;
        case DW_LLE_startx_endx: start = indexed(); return range(start, indexed());
        case DW_LLE_startx_length: start = indexed(); return range(start, start + m_walker.unsignedLeb());
        case DW_LLE_offset_pair:
            start = m_base + m_walker.unsignedLeb();
            return range(start, m_base + m_walker.unsignedLeb());
        case DW_LLE_start_end: start = address(); return range(start, address());
        case DW_LLE_start_length: start = address(); return range(start, start + m_walker.unsignedLeb());
        default: return false;
        }
    }
    bool base(std::uint64_t address) {
        m_base = address;
        m_hasExpression = false;
        return true;
    }
    bool range(std::uint64_t start, std::uint64_t end) {
        m_holdsPc = start <= m_pc && m_pc < end;
        return true;
    }
    std::uint64_t indexed() { return m_forms.addressAt(m_walker.unsignedLeb()); }
    std::uint64_t address() { return m_walker.address() + m_forms.loadBias; }

    FormContext const& m_forms;
    DwarfWalker m_walker;
    std::uint64_t m_base;
    std::uint64_t m_pc;
    bool m_hasExpression = false;
    bool m_holdsPc = false;
};

} // namespace

bool findLocation(DwarfUnit& unit, AttrValue const* locOffsetAttr, unsigned long long pc, Budget& search,
                  DwarfBytes& out) {
    if (!ORV_ASSERT(locOffsetAttr != nullptr, "locOffsetAttr")) {
        return false;
    }
    unsigned int const addrSize = unit.forms().addrSize;
    unsigned int const version = unit.forms().version;
    DwarfWalker walker = unit.reader().locationsWalker(version, addrSize);
    if (locOffsetAttr->value >= walker.size() || !ORV_ASSERT(addrSize == 4 || addrSize == 8, "false")) {
        return false;
    }
    walker.seek(locOffsetAttr->value);
    if (version >= k_versionWithKinds) {
        return KindsOfEntries(unit, walker, pc).find(search, out);
    }
    return unit.skeleton() != nullptr ? findSplitLocation(unit, walker, pc, search, out)
                                      : findInPairs(unit, walker, pc, search, out);
}

} // namespace ORV_3_30
