// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Entries that begin with their kind, with addresses by their number (GNU's forerunner of DWARF version 5, 7.7.3).
#include "dwarf/orv_dwarf_split_location.h"

#include <algorithm>

namespace ORV_3_30 {

bool findSplitLocation(DwarfUnit const& unit, DwarfWalker list, unsigned long long pc, Budget& search,
                       DwarfBytes& expression) {
    constexpr std::uint64_t k_entryCost = 16;
    FormContext const& forms = unit.forms();
    std::uint64_t base = unit.baseAddress();
    std::uint8_t kind = DW_LLE_GNU_end_of_list;
    while (list.getUnsigned1(kind) == status_Ok && search.spend(k_entryCost)) {
        std::uint64_t start = 0;
        std::uint64_t end = 0;
        switch (kind) {
        case DW_LLE_GNU_base_address_selection: base = forms.addressAt(list.unsignedLeb()); continue;
        case DW_LLE_GNU_start_end:
            start = forms.addressAt(list.unsignedLeb());
            end = forms.addressAt(list.unsignedLeb());
            break;
        case DW_LLE_GNU_start_length:
            start = forms.addressAt(list.unsignedLeb());
            list.getUnsigned4(end);
            end += start;
            break;
        case DW_LLE_GNU_offset_pair:
            list.getUnsigned4(start);
            list.getUnsigned4(end);
            start += base;
            end += base;
            break;
        default: return false;
        }
        std::uint64_t length = 0;
        if (list.getUnsigned2(length) != status_Ok) {
            return false;
        }
        if (start <= pc && pc < end) {
            expression = {list.current(), std::min(length, list.remaining())};
            return true;
        }
        list.skip(length);
    }
    return false;
}

} // namespace ORV_3_30
