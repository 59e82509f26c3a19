// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Range lists (DWARF version 4, 2.17.3), and the range of a low and a high address (2.17.2).
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

std::uint64_t readRanges(DwarfUnit const& unit, AttrValue const* rangesAttr, std::uint64_t const* baseOverride,
                         AddressPairs& out) {
    if (!ORV_ASSERT(rangesAttr != nullptr, "rangesAttr")) {
        return 0;
    }
    unsigned int const addrSize = unit.forms().addrSize;
    DwarfWalker walker = unit.reader().rangesWalker(addrSize);
    if (rangesAttr->value >= walker.size() || (addrSize != 4 && addrSize != 8)) {
        return 0;
    }
    walker.seek(rangesAttr->value);
    std::uint64_t const selectsBase = addrSize == 4 ? 0xFFFFFFFF : ~std::uint64_t{0};
    Budget& budget = unit.reader().budgets().rangePairs;
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
    // A list that makes a scope jump about must not make the adding slow.
    constexpr std::size_t k_manyPairs = 4096;
    if (out.size() > k_manyPairs) {
        std::sort(out.begin(), out.end());
    }
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
