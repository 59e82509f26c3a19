// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Range lists (DWARF version 4, 2.17.3, and version 5, 2.17.3 and 7.25), and the range of a low and a high address
// (2.17.2).
#include "dwarf/orv_dwarf_ranges.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_reader.h"
#include "orv/orv_dwarf.h"

#include <algorithm>

namespace ORV_3_30 {

namespace dwarf_utils {

void calculateHighLowAdresses(AttrBinding const* low, AttrBinding const* high, unsigned long long& outLow,
                              unsigned long long& outHigh) {
    outLow = low != nullptr ? low->value : 0;
    outHigh = outLow;
    if (high == nullptr) {
        return;
    }
    bool const isAddress = high->form == DW_FORM_addr;
    outHigh = isAddress ? high->value : outLow + high->value;
    if (low == nullptr && isAddress) {
        outLow = outHigh;
    }
}

} // namespace dwarf_utils

namespace {

/// A list of version 5. lowest: as the list of an earlier version has it, without the base.
class LaterRanges {
public:
    LaterRanges(DwarfUnit const& unit, DwarfWalker walker, Budget& budget)
        : m_forms(unit.forms()), m_walker(walker), m_base(unit.baseAddress()), m_budget(budget) {}

    std::uint64_t read(AddressPairs& out) {
        std::uint64_t lowest = ~std::uint64_t{0};
        std::uint8_t kind = DW_RLE_end_of_list;
        while (m_walker.getUnsigned1(kind) == status_Ok && kind != DW_RLE_end_of_list && m_budget.spend(1)) {
            std::uint64_t start = 0;
            std::uint64_t end = 0;
            if (!readEntry(kind, start, end)) {
                break;
            }
            if (start < end) {
                lowest = std::min(lowest, start);
                out.emplace_back(start, end);
            }
        }
        return lowest == ~std::uint64_t{0} ? m_base : lowest;
    }

private:
    /// An entry without a range leaves start and end as they are. False for one of an unknown kind.
    bool readEntry(std::uint8_t kind, std::uint64_t& start, std::uint64_t& end) {
        switch (kind) {
        case DW_RLE_base_addressx: m_base = indexed(); return true;
        case DW_RLE_base_address: m_base = address(); return true;
        case DW_RLE_startx_endx:
            start = indexed();
            end = indexed();
            return true;
        case DW_RLE_startx_length:
            start = indexed();
            end = start + m_walker.unsignedLeb();
            return true;
        case DW_RLE_offset_pair:
            start = m_base + m_walker.unsignedLeb();
            end = m_base + m_walker.unsignedLeb();
            end = m_forms.isTombstone(m_base) ? start : end; // what is gone has no stretch
            return true;
        case DW_RLE_start_end:
            start = address();
            end = address();
            return true;
        case DW_RLE_start_length:
            start = address();
            end = start + m_walker.unsignedLeb();
            return true;
        default: return false;
        }
    }
    std::uint64_t indexed() { return m_forms.addressAt(m_walker.unsignedLeb()); }
    std::uint64_t address() { return m_walker.address() + m_forms.loadBias; }

    FormContext const& m_forms;
    DwarfWalker m_walker;
    std::uint64_t m_base;
    Budget& m_budget;
};

/// A list that makes a scope jump about must not make the adding slow.
void sortMany(AddressPairs& pairs) {
    constexpr std::size_t k_manyPairs = 4096;
    if (pairs.size() > k_manyPairs) {
        std::sort(pairs.begin(), pairs.end());
    }
}

} // namespace

std::uint64_t readRanges(DwarfUnit const& unit, AttrValue const* rangesAttr, std::uint64_t const* baseOverride,
                         AddressPairs& out) {
    return readRanges(unit, rangesAttr, baseOverride, out, unit.reader().budgets().rangePairs);
}

std::uint64_t readRanges(DwarfUnit const& unit, AttrValue const* rangesAttr, std::uint64_t const* baseOverride,
                         AddressPairs& out, Budget& budget) {
    if (!ORV_ASSERT(rangesAttr != nullptr, "rangesAttr")) {
        return 0;
    }
    unsigned int const addrSize = unit.forms().addrSize;
    DwarfWalker walker = unit.reader().rangesWalker(unit.forms().version, addrSize);
    std::uint64_t const rangesBase = std::min(unit.rangesBase(), walker.size());
    if (rangesAttr->value >= walker.size() - rangesBase || (addrSize != 4 && addrSize != 8)) {
        return 0;
    }
    walker.seek(rangesBase + rangesAttr->value);
    if (unit.forms().version >= 5) {
        std::uint64_t const lowest = LaterRanges(unit, walker, budget).read(out);
        sortMany(out);
        return lowest;
    }
    std::uint64_t const selectsBase = addrSize == 4 ? 0xFFFFFFFF : ~std::uint64_t{0};
    std::uint64_t base = unit.baseAddress();
    std::uint64_t lowest = ~std::uint64_t{0};
    bool hasSelected = false;
    bool isWhole = false;
    while (walker.remaining() >= 2 * addrSize && budget.spend(1)) {
        std::uint64_t const first = walker.address();
        std::uint64_t const second = walker.address();
        if (first == 0 && second == 0) {
            break;
        }
        if (first == selectsBase) {
            base = isWhole ? 0 : second;
            hasSelected = true;
            continue;
        }
        if (first == second) {
            continue;
        }
        if (baseOverride != nullptr && hasSelected && !isWhole && first + base > *baseOverride) {
            base = 0;
            isWhole = true;
        }
        lowest = std::min(lowest, first);
        if (first + base < second + base) {
            out.emplace_back(first + base, second + base);
        }
    }
    sortMany(out);
    return lowest == ~std::uint64_t{0} ? base : base + lowest;
}

bool rangeOfEntry(AttrValue const* low, AttrValue const* high, unsigned long long& outLow,
                  unsigned long long& outHigh) {
    auto const bindingOf = [](AttrValue const* value) {
        return value != nullptr ? AttrBinding{nullptr, 0, value->form, value->value, value->data} : AttrBinding();
    };
    AttrBinding const lowBinding = bindingOf(low);
    AttrBinding const highBinding = bindingOf(high);
    dwarf_utils::calculateHighLowAdresses(low != nullptr ? &lowBinding : nullptr,
                                          high != nullptr ? &highBinding : nullptr, outLow, outHigh);
    return (low != nullptr || high != nullptr) && outLow <= outHigh;
}

} // namespace ORV_3_30
