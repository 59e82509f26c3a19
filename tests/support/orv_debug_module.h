// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A program with one of everything that debug information loads step by step.
#pragma once

#include "support/orv_assembler.h"

namespace orv_test {

/// Units, each with functions of 16 bytes and more, behind one another, and a distance from one to the next. A function
/// has a label, a variable and three bodies of "_Z6inlinev" in each other at its start; that stands alone as well, as a
/// list of ranges. Behind it all is "frame" over 0x3D0..0x3F0, with "local0" to "local15" on its stack.
inline std::string debugModule(int units, int functions, int distance) {
    DwarfText text;
    std::string tables;
    for (int unit = 0; unit < units; ++unit) {
        int const first = unit * distance;
        std::string const suffix = number(unit);
        std::string entries = ".Lo" + suffix + ": " +
                              entry(DW_TAG_subprogram, {nameAttr("_Z6inlinev"),
                                                        {DW_AT_inline, DW_FORM_data1, "1"},
                                                        {DW_AT_ranges, DW_FORM_sec_offset, "0"}});
        std::string rows = setAddress(first) + ".byte 5\n.uleb128 70000\n";
        for (int i = 0; i < functions; ++i) {
            int const start = first + i * 16;
            std::string inner;
            for (int depth = 2; depth >= 0; --depth) {
                inner = entry(DW_TAG_inlined_subroutine,
                              {{DW_AT_abstract_origin, DW_FORM_ref_addr, ".Lo" + suffix + " - .Linfo"},
                               lowAttr(start + depth),
                               {DW_AT_high_pc, DW_FORM_data1, number(12 - depth)},
                               {DW_AT_call_file, DW_FORM_data1, "1"},
                               {DW_AT_call_line, DW_FORM_data1, number(depth + 3)}},
                              inner);
            }
            inner += entry(DW_TAG_label, {nameAttr("l"), lowAttr(start + 4)}) +
                     entry(DW_TAG_variable,
                           {nameAttr("v" + number(i)),
                            {DW_AT_location, DW_FORM_block1, ".byte 3\n.8byte code + " + number(start + 8)}});
            Attrs const attrs =
                functionAttrs("_Z1f" + number(i) + "v", start, 16 + i % 3 * 8, declaredAttrs(i % 3, i + 1));
            entries += entry(DW_TAG_subprogram, attrs, inner);
            rows += ".byte 4, " + number(1 + i % 2) + ", 1, 2, 16\n";
        }
        std::string locals = entry(DW_TAG_variable, {nameAttr("local0"), {DW_AT_location, DW_FORM_data4, "0"}});
        for (int i = 1; i < 16; ++i) {
            locals += entry(DW_TAG_variable, {nameAttr("local" + number(i)),
                                              {DW_AT_location, DW_FORM_block1, ".byte 0x91, " + number(i)}});
        }
        entries += entry(DW_TAG_subprogram,
                         {nameAttr("frame"),
                          lowAttr(first + 0x3D0),
                          {DW_AT_high_pc, DW_FORM_addr, "code + " + number(first + 0x3F0)},
                          {DW_AT_frame_base, DW_FORM_block1, ".byte 0x56"}},
                         locals);
        text.unit({}, entry(DW_TAG_compile_unit,
                            {nameAttr("a.c"),
                             {DW_AT_comp_dir, DW_FORM_string, "/d" + suffix},
                             {DW_AT_producer, DW_FORM_string, "GNU Fortran 4"},
                             {DW_AT_stmt_list, DW_FORM_sec_offset, ".Llines" + suffix}},
                            entries));
        tables += ".Llines" + suffix + ":\n" + lineTable({}, rows + k_endSequence);
    }
    return text.section(".debug_line", tables)
        .section(".debug_ranges", ".8byte code + 0x3F0, code + 0x3F4, code + 0x3F8, code + 0x3FC, 0, 0\n")
        .section(".debug_loc", ".8byte code, code + 0x1000\n.2byte 2\n.byte 0x91, 0\n.8byte 0, 0\n")
        .source();
}

} // namespace orv_test
