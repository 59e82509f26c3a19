// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Numbers of the DWARF format (DWARF version 5, section 7) that the reader knows by name.
#pragma once

namespace ORV_3_30 {

enum dwarf_tag_t : unsigned int {
    DW_TAG_array_type = 0x01,
    DW_TAG_class_type = 0x02,
    DW_TAG_entry_point = 0x03,
    DW_TAG_enumeration_type = 0x04,
    DW_TAG_label = 0x0A,
    DW_TAG_lexical_block = 0x0B,
    DW_TAG_member = 0x0D,
    DW_TAG_pointer_type = 0x0F,
    DW_TAG_reference_type = 0x10,
    DW_TAG_compile_unit = 0x11,
    DW_TAG_structure_type = 0x13,
    DW_TAG_subroutine_type = 0x15,
    DW_TAG_typedef = 0x16,
    DW_TAG_union_type = 0x17,
    DW_TAG_common_block = 0x1A,
    DW_TAG_inheritance = 0x1C,
    DW_TAG_inlined_subroutine = 0x1D,
    DW_TAG_module = 0x1E,
    DW_TAG_ptr_to_member_type = 0x1F,
    DW_TAG_subrange_type = 0x21,
    DW_TAG_base_type = 0x24,
    DW_TAG_const_type = 0x26,
    DW_TAG_packed_type = 0x2D,
    DW_TAG_subprogram = 0x2E,
    DW_TAG_try_block = 0x32,
    DW_TAG_variable = 0x34,
    DW_TAG_volatile_type = 0x35,
    DW_TAG_restrict_type = 0x37,
    DW_TAG_interface_type = 0x38,
    DW_TAG_namespace = 0x39,
    DW_TAG_unspecified_type = 0x3B,
    DW_TAG_partial_unit = 0x3C,
    DW_TAG_mutable_type = 0x40,
    DW_TAG_type_unit = 0x41,
    DW_TAG_rvalue_reference_type = 0x42,
    DW_TAG_template_alias = 0x43,
    DW_TAG_atomic_type = 0x47,
    DW_TAG_skeleton_unit = 0x4A,
    DW_TAG_immutable_type = 0x4B,
    DW_TAG_unit_options = 0x7000 ///< A vendor's: the options that a part of a unit was compiled with.
};

enum dwarf_attribute_t : unsigned int {
    DW_AT_sibling = 0x01,
    DW_AT_location = 0x02,
    DW_AT_name = 0x03,
    DW_AT_byte_size = 0x0B,
    DW_AT_bit_offset = 0x0C,
    DW_AT_bit_size = 0x0D,
    DW_AT_stmt_list = 0x10,
    DW_AT_low_pc = 0x11,
    DW_AT_high_pc = 0x12,
    DW_AT_language = 0x13,
    DW_AT_comp_dir = 0x1B,
    DW_AT_inline = 0x20,
    DW_AT_lower_bound = 0x22,
    DW_AT_producer = 0x25,
    DW_AT_upper_bound = 0x2F,
    DW_AT_abstract_origin = 0x31,
    DW_AT_count = 0x37,
    DW_AT_data_member_location = 0x38,
    DW_AT_decl_column = 0x39,
    DW_AT_decl_file = 0x3A,
    DW_AT_decl_line = 0x3B,
    DW_AT_declaration = 0x3C,
    DW_AT_external = 0x3F,
    DW_AT_frame_base = 0x40,
    DW_AT_specification = 0x47,
    DW_AT_type = 0x49,
    DW_AT_entry_pc = 0x52,
    DW_AT_ranges = 0x55,
    DW_AT_call_column = 0x57,
    DW_AT_call_file = 0x58,
    DW_AT_call_line = 0x59,
    DW_AT_data_bit_offset = 0x6B,
    DW_AT_linkage_name = 0x6E,
    DW_AT_str_offsets_base = 0x72,
    DW_AT_addr_base = 0x73,
    DW_AT_rnglists_base = 0x74,
    DW_AT_dwo_name = 0x76,
    DW_AT_loclists_base = 0x8C,
    DW_AT_MIPS_linkage_name = 0x2007,
    DW_AT_GNU_dwo_name = 0x2130,
    DW_AT_GNU_dwo_id = 0x2131,
    DW_AT_GNU_ranges_base = 0x2132,
    DW_AT_GNU_addr_base = 0x2133,
    DW_AT_GNU_discriminator = 0x2136,
    DW_AT_unit_options = 0x3B01 ///< A vendor's: option text.
};

enum dwarf_form_t : unsigned int {
    DW_FORM_addr = 0x01,
    DW_FORM_block2 = 0x03,
    DW_FORM_block4 = 0x04,
    DW_FORM_data2 = 0x05,
    DW_FORM_data4 = 0x06,
    DW_FORM_data8 = 0x07,
    DW_FORM_string = 0x08,
    DW_FORM_block = 0x09,
    DW_FORM_block1 = 0x0A,
    DW_FORM_data1 = 0x0B,
    DW_FORM_flag = 0x0C,
    DW_FORM_sdata = 0x0D,
    DW_FORM_strp = 0x0E,
    DW_FORM_udata = 0x0F,
    DW_FORM_ref_addr = 0x10,
    DW_FORM_ref1 = 0x11,
    DW_FORM_ref2 = 0x12,
    DW_FORM_ref4 = 0x13,
    DW_FORM_ref8 = 0x14,
    DW_FORM_ref_udata = 0x15,
    DW_FORM_indirect = 0x16,
    DW_FORM_sec_offset = 0x17,
    DW_FORM_exprloc = 0x18,
    DW_FORM_flag_present = 0x19,
    DW_FORM_strx = 0x1A,
    DW_FORM_addrx = 0x1B,
    DW_FORM_ref_sup4 = 0x1C,
    DW_FORM_strp_sup = 0x1D,
    DW_FORM_data16 = 0x1E,
    DW_FORM_line_strp = 0x1F,
    DW_FORM_ref_sig8 = 0x20,
    DW_FORM_implicit_const = 0x21,
    DW_FORM_loclistx = 0x22,
    DW_FORM_rnglistx = 0x23,
    DW_FORM_ref_sup8 = 0x24,
    DW_FORM_strx1 = 0x25,
    DW_FORM_strx2 = 0x26,
    DW_FORM_strx3 = 0x27,
    DW_FORM_strx4 = 0x28,
    DW_FORM_addrx1 = 0x29,
    DW_FORM_addrx2 = 0x2A,
    DW_FORM_addrx3 = 0x2B,
    DW_FORM_addrx4 = 0x2C,
    DW_FORM_GNU_addr_index = 0x1F01,
    DW_FORM_GNU_str_index = 0x1F02,
    DW_FORM_GNU_ref_alt = 0x1F20,
    DW_FORM_GNU_strp_alt = 0x1F21
};

enum dwarf_language_t : unsigned int {
    DW_LANG_C89 = 0x01,
    DW_LANG_C = 0x02,
    DW_LANG_Ada83 = 0x03,
    DW_LANG_C_plus_plus = 0x04,
    DW_LANG_Fortran77 = 0x07,
    DW_LANG_Fortran90 = 0x08,
    DW_LANG_C99 = 0x0C,
    DW_LANG_Ada95 = 0x0D,
    DW_LANG_Fortran95 = 0x0E,
    DW_LANG_C_plus_plus_03 = 0x19,
    DW_LANG_C_plus_plus_11 = 0x1A,
    DW_LANG_C11 = 0x1D,
    DW_LANG_C_plus_plus_14 = 0x21,
    DW_LANG_Fortran03 = 0x22,
    DW_LANG_Fortran08 = 0x23,
    DW_LANG_C_plus_plus_17 = 0x2A,
    DW_LANG_C_plus_plus_20 = 0x2B,
    DW_LANG_C17 = 0x2C,
    DW_LANG_Fortran18 = 0x2D,
    DW_LANG_Ada2005 = 0x2E,
    DW_LANG_Ada2012 = 0x2F
};

enum dwarf_unit_type_t : unsigned int {
    DW_UT_compile = 1,
    DW_UT_type = 2,
    DW_UT_partial = 3,
    DW_UT_skeleton = 4,
    DW_UT_split_compile = 5,
    DW_UT_split_type = 6
};

enum dwarf_range_entry_t : unsigned int {
    DW_RLE_end_of_list = 0,
    DW_RLE_base_addressx = 1,
    DW_RLE_startx_endx = 2,
    DW_RLE_startx_length = 3,
    DW_RLE_offset_pair = 4,
    DW_RLE_base_address = 5,
    DW_RLE_start_end = 6,
    DW_RLE_start_length = 7
};

/// Columns of the index of a package of split units, as version 5 has them; before it those that are named so.
enum dwarf_section_id_t : unsigned int {
    DW_SECT_INFO = 1,
    DW_SECT_ABBREV = 3,
    DW_SECT_LOCLISTS = 5, ///< Before: .debug_loc.
    DW_SECT_STR_OFFSETS = 6,
    DW_SECT_RNGLISTS = 8 ///< Before: of macros.
};

/// Entries of a location list of a split unit before version 5.
enum dwarf_gnu_location_entry_t : unsigned int {
    DW_LLE_GNU_end_of_list = 0,
    DW_LLE_GNU_base_address_selection = 1,
    DW_LLE_GNU_start_end = 2,
    DW_LLE_GNU_start_length = 3,
    DW_LLE_GNU_offset_pair = 4
};

/// What a column of a line table's file list holds.
enum dwarf_line_content_t : unsigned int {
    DW_LNCT_path = 1,
    DW_LNCT_directory_index = 2,
    DW_LNCT_timestamp = 3,
    DW_LNCT_size = 4
};

/// What an entry of a location list is.
enum dwarf_location_entry_t : unsigned int {
    DW_LLE_end_of_list = 0,
    DW_LLE_base_addressx = 1,
    DW_LLE_startx_endx = 2,
    DW_LLE_startx_length = 3,
    DW_LLE_offset_pair = 4,
    DW_LLE_default_location = 5,
    DW_LLE_base_address = 6,
    DW_LLE_start_end = 7,
    DW_LLE_start_length = 8,
    DW_LLE_GNU_view_pair = 9
};

enum dwarf_operation_t : unsigned char {
    DW_OP_addr = 0x03,
    DW_OP_const1u = 0x08,
    DW_OP_const1s = 0x09,
    DW_OP_const2u = 0x0A,
    DW_OP_const2s = 0x0B,
    DW_OP_const4u = 0x0C,
    DW_OP_const4s = 0x0D,
    DW_OP_const8u = 0x0E,
    DW_OP_const8s = 0x0F,
    DW_OP_constu = 0x10,
    DW_OP_consts = 0x11,
    DW_OP_dup = 0x12,
    DW_OP_drop = 0x13,
    DW_OP_over = 0x14,
    DW_OP_swap = 0x16,
    DW_OP_and = 0x1A,
    DW_OP_minus = 0x1C,
    DW_OP_mul = 0x1E,
    DW_OP_neg = 0x1F,
    DW_OP_not = 0x20,
    DW_OP_or = 0x21,
    DW_OP_plus = 0x22,
    DW_OP_plus_uconst = 0x23,
    DW_OP_shl = 0x24,
    DW_OP_shr = 0x25,
    DW_OP_xor = 0x27,
    DW_OP_lit0 = 0x30,
    DW_OP_reg0 = 0x50,
    DW_OP_reg4 = 0x54,
    DW_OP_reg6 = 0x56,
    DW_OP_breg0 = 0x70,
    DW_OP_breg4 = 0x74,
    DW_OP_breg5 = 0x75,
    DW_OP_breg6 = 0x76,
    DW_OP_breg7 = 0x77,
    DW_OP_regx = 0x90,
    DW_OP_fbreg = 0x91,
    DW_OP_bregx = 0x92,
    DW_OP_piece = 0x93,
    DW_OP_nop = 0x96,
    DW_OP_call_frame_cfa = 0x9C,
    DW_OP_addrx = 0xA1,
    DW_OP_GNU_addr_index = 0xFB
};

enum dwarf_line_standard_t : unsigned int {
    DW_LNS_extended = 0,
    DW_LNS_copy = 1,
    DW_LNS_advance_pc = 2,
    DW_LNS_advance_line = 3,
    DW_LNS_set_file = 4,
    DW_LNS_set_column = 5,
    DW_LNS_negate_stmt = 6,
    DW_LNS_set_basic_block = 7,
    DW_LNS_const_add_pc = 8,
    DW_LNS_fixed_advance_pc = 9,
    DW_LNS_set_prologue_end = 10,
    DW_LNS_set_epilogue_begin = 11,
    DW_LNS_set_isa = 12
};

enum dwarf_line_extended_t : unsigned int {
    DW_LNE_end_sequence = 1,
    DW_LNE_set_address = 2,
    DW_LNE_define_file = 3,
    DW_LNE_set_discriminator = 4
};

} // namespace ORV_3_30
