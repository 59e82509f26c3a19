// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Numbers of call frame information (DWARF version 5, 6.4 and 7.24; the sections of exception handling: LSB Core,
/// "Exception Frames").
#pragma once

namespace ORV_3_30 {

/// The first three hold an operand in their low six bits.
enum dwarf_frame_instruction_t : unsigned int {
    DW_CFA_advance_loc = 0x40,
    DW_CFA_offset = 0x80,
    DW_CFA_restore = 0xC0,
    DW_CFA_nop = 0x00,
    DW_CFA_set_loc = 0x01,
    DW_CFA_advance_loc1 = 0x02,
    DW_CFA_advance_loc2 = 0x03,
    DW_CFA_advance_loc4 = 0x04,
    DW_CFA_offset_extended = 0x05,
    DW_CFA_restore_extended = 0x06,
    DW_CFA_undefined = 0x07,
    DW_CFA_same_value = 0x08,
    DW_CFA_register = 0x09,
    DW_CFA_remember_state = 0x0A,
    DW_CFA_restore_state = 0x0B,
    DW_CFA_def_cfa = 0x0C,
    DW_CFA_def_cfa_register = 0x0D,
    DW_CFA_def_cfa_offset = 0x0E,
    DW_CFA_def_cfa_expression = 0x0F,
    DW_CFA_expression = 0x10,
    DW_CFA_offset_extended_sf = 0x11,
    DW_CFA_def_cfa_sf = 0x12,
    DW_CFA_def_cfa_offset_sf = 0x13,
    DW_CFA_val_offset = 0x14,
    DW_CFA_val_offset_sf = 0x15,
    DW_CFA_val_expression = 0x16,
    DW_CFA_MIPS_advance_loc8 = 0x1D,
    DW_CFA_AARCH64_negate_ra_state_with_pc = 0x2C,
    DW_CFA_GNU_window_save = 0x2D, ///< And AArch64's negate_ra_state.
    DW_CFA_GNU_args_size = 0x2E,
    DW_CFA_GNU_negative_offset_extended = 0x2F
};

/// How a pointer is written: a format and what it counts from.
enum dwarf_pointer_encoding_t : unsigned int {
    DW_EH_PE_absptr = 0x00,
    DW_EH_PE_uleb128 = 0x01,
    DW_EH_PE_udata2 = 0x02,
    DW_EH_PE_udata4 = 0x03,
    DW_EH_PE_udata8 = 0x04,
    DW_EH_PE_sleb128 = 0x09,
    DW_EH_PE_sdata2 = 0x0A,
    DW_EH_PE_sdata4 = 0x0B,
    DW_EH_PE_sdata8 = 0x0C,
    DW_EH_PE_formats = 0x0F,
    DW_EH_PE_pcrel = 0x10,
    DW_EH_PE_datarel = 0x30,
    DW_EH_PE_bases = 0x70,
    DW_EH_PE_indirect = 0x80,
    DW_EH_PE_omit = 0xFF
};

} // namespace ORV_3_30
