// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the DWARF reader shares with clients that decode entries themselves.
#pragma once

#include "orv/orv_export.h"

namespace ORV_3_30 {

/// One decoded attribute of a debugging information entry (DWARF version 4, 7.5). Forms that carry the
/// same kind of value come to one form: numbers of fixed size to DW_FORM_data8 (0x07), blocks to
/// DW_FORM_block (0x09), references to DW_FORM_ref_addr (0x10) with an offset in .debug_info.
struct ORV_API AttrBinding {
    AttrBinding* next = nullptr;
    unsigned long long attr = 0;
    unsigned long long form = 0;
    unsigned long long value = 0;        ///< Number, offset, or length in bytes of data.
    unsigned char const* data = nullptr; ///< Block or text; null for the others.
};

namespace dwarf_utils {

/// The range that DW_AT_low_pc and DW_AT_high_pc stand for (DWARF version 4, 2.17.2). Either may be
/// null. A high of DW_FORM_addr is the end itself, any other form its distance from low. Without high
/// the end is the start, without low a distance counts from 0.
ORV_API void calculateHighLowAdresses(AttrBinding const* low, AttrBinding const* high, unsigned long long& outLow,
                                      unsigned long long& outHigh);

} // namespace dwarf_utils

} // namespace ORV_3_30
