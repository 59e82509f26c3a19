// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Values by their form, one flat switch (DWARF version 5, 7.5.6, and GNU's extensions).
#include "dwarf/orv_dwarf_form.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_constants.h"

#include <algorithm>
#include <cstring>

namespace ORV_3_30 {
namespace {

/// The next value of one of the unsigned sizes; 0 if too few bytes are left.
template <unsigned int Width> std::uint64_t fixed(DwarfWalker& walker) {
    std::uint64_t value = 0;
    if constexpr (Width == 1) {
        walker.getUnsigned1(value);
    } else if constexpr (Width == 2) {
        walker.getUnsigned2(value);
    } else if constexpr (Width == 4) {
        walker.getUnsigned4(value);
    } else {
        walker.getUnsigned8(value);
    }
    return value;
}

bool block(DwarfWalker& walker, std::uint64_t form, std::uint64_t length, AttrValue& out) {
    out = {form, std::min(length, walker.remaining()), walker.current()};
    walker.skip(length);
    return true;
}

bool number(std::uint64_t form, std::uint64_t value, AttrValue& out) {
    out = {form, value, nullptr};
    return true;
}

/// An offset that must be there in full.
bool checkedOffset(DwarfWalker& walker, bool is64, std::uint64_t form, AttrValue& out) {
    std::uint64_t value = 0;
    if (is64) {
        if (!ORV_ASSERT(walker.getUnsigned8(value) == status_Ok, "walker.getUnsigned8(attrValue) == status_Ok")) {
            return false;
        }
    } else if (!ORV_ASSERT(walker.getUnsigned4(value) == status_Ok, "walker.getUnsigned4(attrValue) == status_Ok")) {
        return false;
    }
    return number(form, value, out);
}

std::uint64_t uncheckedOffset(DwarfWalker& walker, bool is64) { return is64 ? fixed<8>(walker) : fixed<4>(walker); }

std::uint64_t addressOf(DwarfWalker& walker, FormContext const& context) {
    walker.setAddrSizeQuietly(context.addrSize);
    return walker.address();
}

bool withoutValue(std::uint64_t form, AttrValue& out) {
    out.form = form;
    out.data = nullptr;
    return true;
}

bool textHere(DwarfWalker& walker, AttrValue& out) {
    out.form = DW_FORM_string;
    out.data = walker.current();
    walker.text(out.value);
    return true;
}

bool textAt(std::uint64_t offset, unsigned char const* strings, std::uint64_t size, AttrValue& out) {
    out.form = DW_FORM_strp;
    out.data = offset < size ? strings + offset : nullptr;
    return true;
}

bool textElsewhere(DwarfWalker& walker, FormContext const& context, AttrValue& out) {
    return textAt(uncheckedOffset(walker, context.is64), context.strings, context.stringsSize, out);
}

/// Null data for a text that is not there, as where the file was not found.
bool supplementText(FormContext const& context, std::uint64_t offset, AttrValue& out) {
    DwarfBytes const& strings = context.tables->supplementStrings;
    return textAt(offset, strings.data, strings.size, out);
}

/// 3 bytes; 0 if fewer are left.
std::uint64_t fixed3(DwarfWalker& walker) {
    std::uint64_t const low = fixed<2>(walker);
    return low | fixed<1>(walker) << 16;
}

/// A number in a table of numbers of one width; false for one that is not there.
bool entryOf(DwarfBytes const& table, std::uint64_t base, std::uint64_t index, unsigned int width, std::uint64_t& out) {
    if (base > table.size || index >= (table.size - base) / width) {
        return false;
    }
    out = 0;
    std::memcpy(&out, table.data + base + index * width, width); // the host is little-endian, as the files are
    return true;
}

bool indexedText(FormContext const& context, std::uint64_t index, AttrValue& out) {
    std::uint64_t offset = ~std::uint64_t{0};
    entryOf(context.tables->stringOffsets, context.bases.stringOffsets, index, context.is64 ? 8 : 4, offset);
    return textAt(offset, context.strings, context.stringsSize, out);
}

/// The place of a list by its number; behind the end for one that is not there.
bool indexedList(FormContext const& context, DwarfBytes const& lists, std::uint64_t base, std::uint64_t index,
                 AttrValue& out) {
    std::uint64_t offset = 0;
    bool const isThere = entryOf(lists, base, index, context.is64 ? 8 : 4, offset);
    return number(DW_FORM_sec_offset, isThere ? base + offset : ~std::uint64_t{0}, out);
}

/// Forms of version 5.
bool readLaterForm(DwarfWalker& walker, FormContext const& context, std::uint64_t form, AttrValue& out) {
    auto const address = [&](std::uint64_t index) { return number(DW_FORM_addr, context.addressAt(index), out); };
    DwarfTables const& tables = *context.tables;
    switch (form) {
    case DW_FORM_GNU_str_index:
    case DW_FORM_strx: return indexedText(context, walker.unsignedLeb(), out);
    case DW_FORM_strx1: return indexedText(context, fixed<1>(walker), out);
    case DW_FORM_strx2: return indexedText(context, fixed<2>(walker), out);
    case DW_FORM_strx3: return indexedText(context, fixed3(walker), out);
    case DW_FORM_strx4: return indexedText(context, fixed<4>(walker), out);
    case DW_FORM_GNU_addr_index:
    case DW_FORM_addrx: return address(walker.unsignedLeb());
    case DW_FORM_addrx1: return address(fixed<1>(walker));
    case DW_FORM_addrx2: return address(fixed<2>(walker));
    case DW_FORM_addrx3: return address(fixed3(walker));
    case DW_FORM_addrx4: return address(fixed<4>(walker));
    case DW_FORM_line_strp:
        return textAt(uncheckedOffset(walker, context.is64), tables.lineStrings.data, tables.lineStrings.size, out);
    case DW_FORM_rnglistx:
        return indexedList(context, tables.rangeLists, context.bases.rangeLists, walker.unsignedLeb(), out);
    case DW_FORM_loclistx:
        return indexedList(context, tables.locationLists, context.bases.locationLists, walker.unsignedLeb(), out);
    case DW_FORM_data16: return block(walker, DW_FORM_block, 16, out);
    case DW_FORM_implicit_const: return withoutValue(DW_FORM_sdata, out);
    case DW_FORM_strp_sup: return supplementText(context, uncheckedOffset(walker, context.is64), out);
    case DW_FORM_ref_sup4: return number(DW_FORM_GNU_ref_alt, fixed<4>(walker), out);
    case DW_FORM_ref_sup8: return number(DW_FORM_GNU_ref_alt, fixed<8>(walker), out);
    default: return false;
    }
}

unsigned int sizeOfLaterForm(FormContext const& context, std::uint64_t form) {
    switch (form) {
    case DW_FORM_implicit_const: return 0;
    case DW_FORM_strx1:
    case DW_FORM_addrx1: return 1;
    case DW_FORM_strx2:
    case DW_FORM_addrx2: return 2;
    case DW_FORM_strx3:
    case DW_FORM_addrx3: return 3;
    case DW_FORM_strx4:
    case DW_FORM_addrx4:
    case DW_FORM_ref_sup4: return 4;
    case DW_FORM_ref_sup8: return 8;
    case DW_FORM_data16: return 16;
    case DW_FORM_line_strp:
    case DW_FORM_strp_sup:
    case DW_FORM_GNU_ref_alt:
    case DW_FORM_GNU_strp_alt: return context.is64 ? 8 : 4;
    default: return k_variableSize;
    }
}

} // namespace

std::uint64_t FormContext::addressAt(std::uint64_t index) const {
    std::uint64_t address = 0;
    bool const isThere = tables != nullptr && (addrSize == 4 || addrSize == 8) &&
                         entryOf(tables->addresses, bases.addresses, index, addrSize, address);
    return isThere ? address + loadBias : 0;
}

bool FormContext::isTombstone(std::uint64_t address) const {
    std::uint64_t const highest = addrSize == 4 ? 0xFFFFFFFF : ~std::uint64_t{0};
    std::uint64_t const own = (address - loadBias) & highest;
    return own == highest || own == highest - 1;
}

bool readForm(DwarfWalker& walker, FormContext const& context, std::uint64_t form, AttrValue& out) {
    for (;;) {
        switch (form) {
        case DW_FORM_addr: return number(form, addressOf(walker, context) + context.loadBias, out);
        case DW_FORM_block1: return block(walker, DW_FORM_block, fixed<1>(walker), out);
        case DW_FORM_block2: return block(walker, DW_FORM_block, fixed<2>(walker), out);
        case DW_FORM_block4: return block(walker, DW_FORM_block, fixed<4>(walker), out);
        case DW_FORM_block:
        case DW_FORM_exprloc: return block(walker, form, walker.unsignedLeb(), out);
        case DW_FORM_data1: return number(DW_FORM_data8, fixed<1>(walker), out);
        case DW_FORM_data2: return number(DW_FORM_data8, fixed<2>(walker), out);
        case DW_FORM_data4: return number(DW_FORM_data8, fixed<4>(walker), out);
        case DW_FORM_data8: return number(DW_FORM_data8, fixed<8>(walker), out);
        case DW_FORM_flag: return number(form, fixed<1>(walker), out);
        case DW_FORM_sdata: return number(form, static_cast<std::uint64_t>(walker.signedLeb()), out);
        case DW_FORM_udata: return number(form, walker.unsignedLeb(), out);
        case DW_FORM_string: return textHere(walker, out);
        case DW_FORM_strp: return textElsewhere(walker, context, out);
        case DW_FORM_ref_addr:
            return number(
                form, context.version < 3 ? addressOf(walker, context) : uncheckedOffset(walker, context.is64), out);
        case DW_FORM_ref1: return number(DW_FORM_ref_addr, fixed<1>(walker) + context.unitOffset, out);
        case DW_FORM_ref2: return number(DW_FORM_ref_addr, fixed<2>(walker) + context.unitOffset, out);
        case DW_FORM_ref4: return number(DW_FORM_ref_addr, fixed<4>(walker) + context.unitOffset, out);
        case DW_FORM_ref8: return number(DW_FORM_ref_addr, fixed<8>(walker) + context.unitOffset, out);
        case DW_FORM_ref_udata: return number(DW_FORM_ref_addr, walker.unsignedLeb() + context.unitOffset, out);
        case DW_FORM_indirect:
            if (walker.atEnd()) {
                return false; // else an indirect form could name itself for ever
            }
            form = walker.unsignedLeb();
            continue;
        case DW_FORM_sec_offset:
        case DW_FORM_GNU_ref_alt: return checkedOffset(walker, context.is64, form, out);
        case DW_FORM_GNU_strp_alt:
            return checkedOffset(walker, context.is64, form, out) &&
                   (context.tables == nullptr || supplementText(context, out.value, out));
        case DW_FORM_flag_present: return withoutValue(form, out);
        case DW_FORM_ref_sig8: walker.skip(8); return number(form, ~std::uint64_t{0}, out);
        case DW_FORM_GNU_addr_index:
        case DW_FORM_GNU_str_index:
            if (context.tables != nullptr) {
                return readLaterForm(walker, context, form, out);
            }
            walker.skipLeb();
            return withoutValue(form, out);
        default: return context.tables != nullptr && readLaterForm(walker, context, form, out);
        }
    }
}

unsigned int sizeOfForm(FormContext const& context, std::uint64_t form) {
    unsigned int const address = context.addrSize == 4 || context.addrSize == 8 ? context.addrSize : 0;
    unsigned int const offset = context.is64 ? 8 : 4;
    switch (form) {
    case DW_FORM_addr: return address;
    case DW_FORM_ref_addr: return context.version < 3 ? address : offset;
    case DW_FORM_strp: return offset;
    case DW_FORM_flag_present: return 0;
    case DW_FORM_data1:
    case DW_FORM_flag:
    case DW_FORM_ref1: return 1;
    case DW_FORM_data2:
    case DW_FORM_ref2: return 2;
    case DW_FORM_data4:
    case DW_FORM_ref4: return 4;
    case DW_FORM_data8:
    case DW_FORM_ref8:
    case DW_FORM_ref_sig8: return 8;
    // Checked on reading, so that a cut one ends its entry.
    default: return context.tables != nullptr ? sizeOfLaterForm(context, form) : k_variableSize;
    }
}

bool isWithoutBytes(std::uint64_t form) { return form == DW_FORM_flag_present || form == DW_FORM_implicit_const; }

bool mayBeMissing(DwarfWalker& walker, FormContext const& context, std::uint64_t form) {
    switch (form) {
    case DW_FORM_sec_offset:
    case DW_FORM_GNU_ref_alt:
    case DW_FORM_GNU_strp_alt: {
        AttrValue ignored{};
        return readForm(walker, context, form, ignored); // says so
    }
    case DW_FORM_block1:
    case DW_FORM_block2:
    case DW_FORM_block4:
    case DW_FORM_block:
    case DW_FORM_exprloc:
    case DW_FORM_sdata:
    case DW_FORM_udata:
    case DW_FORM_string:
    case DW_FORM_ref_udata:
    case DW_FORM_GNU_addr_index:
    case DW_FORM_GNU_str_index: return true;
    case DW_FORM_strx:
    case DW_FORM_addrx:
    case DW_FORM_rnglistx:
    case DW_FORM_loclistx: return context.tables != nullptr;
    default: return sizeOfForm(context, form) != k_variableSize;
    }
}

bool skipForm(DwarfWalker& walker, FormContext const& context, std::uint64_t form) {
    unsigned int const size = sizeOfForm(context, form);
    if (size != k_variableSize) {
        walker.skip(size);
        return true;
    }
    switch (form) {
    case DW_FORM_block:
    case DW_FORM_exprloc: walker.skip(walker.unsignedLeb()); return true;
    case DW_FORM_block1: walker.skip(fixed<1>(walker)); return true;
    case DW_FORM_sdata:
    case DW_FORM_udata:
    case DW_FORM_ref_udata: walker.skipLeb(); return true;
    default: {
        AttrValue ignored{};
        return readForm(walker, context, form, ignored);
    }
    }
}

} // namespace ORV_3_30
