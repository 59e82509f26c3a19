// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Locations of variables: the first operation of an expression, and location lists (DWARF version 4, 2.5 and 2.6).
#include "dwarf/orv_dwarf_location.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_reader.h"
#include "dwarf/orv_dwarf_split_location.h"

namespace ORV_3_30 {
namespace {

constexpr unsigned int k_stackPointer = 0;
constexpr unsigned int k_framePointer = 1;
constexpr std::uint64_t k_entryCost = 16; ///< Of a list.

/// The registers are those of 32-bit and 64-bit x86 together: 4 and 7 the stack pointers, 5 and 6 the frame
/// pointers. A plain register gives its content: it is the frame base that is looked for.
std::uint64_t evaluate(DwarfWalker expression, unsigned int addrSize, StackFrame const& frame) {
    unsigned char operation = 0;
    if (expression.getUnsigned1(operation) != status_Ok) {
        return 0;
    }
    auto const signedOperand = [&] { return static_cast<std::uint64_t>(expression.signedLeb()); };
    switch (operation) {
    case DW_OP_plus_uconst: return expression.unsignedLeb();
    case DW_OP_reg4: return frame.context.getRegister(k_stackPointer);
    case DW_OP_reg6: return frame.context.getRegister(k_framePointer);
    case DW_OP_breg4:
    case DW_OP_breg7: return frame.context.getRegister(k_stackPointer) + signedOperand();
    case DW_OP_breg5:
    case DW_OP_breg6: return frame.context.getRegister(k_framePointer) + signedOperand();
    case DW_OP_fbreg: return frame.base + signedOperand();
    case DW_OP_call_frame_cfa: return frame.context.getRegister(k_framePointer) + 2 * std::uint64_t{addrSize};
    default: return 0;
    }
}

/// Finds the entry of a location list that holds pc.
bool findEntry(DwarfUnit& unit, AttrValue const* locOffsetAttr, unsigned long long pc, Budget& search,
               DwarfWalker& out) {
    if (!ORV_ASSERT(locOffsetAttr != nullptr, "locOffsetAttr")) {
        return false;
    }
    unsigned int const addrSize = unit.forms().addrSize;
    DwarfWalker walker = unit.reader().locationsWalker(addrSize);
    if (locOffsetAttr->value >= walker.size() || !ORV_ASSERT(addrSize == 4 || addrSize == 8, "false")) {
        return false;
    }
    walker.seek(locOffsetAttr->value);
    if (unit.skeleton() != nullptr && unit.forms().version < 5) {
        return findSplitLocation(unit, walker, pc, search, out);
    }
    std::uint64_t const selectsBase = addrSize == 4 ? 0xFFFFFFFF : ~std::uint64_t{0};
    std::uint64_t base = unit.baseAddress();
    while (walker.remaining() >= 2 * addrSize && search.spend(k_entryCost)) {
        std::uint64_t const first = walker.address();
        std::uint64_t const second = walker.address();
        if (first == 0 && second == 0) {
            return false;
        }
        if (first == selectsBase) {
            base = second;
            continue;
        }
        std::uint64_t length = 0;
        if (walker.getUnsigned2(length) != status_Ok) {
            return false;
        }
        if (first + base <= pc && pc < second + base) {
            out = DwarfWalker(walker.current(), length < walker.remaining() ? length : walker.remaining(), addrSize);
            return true;
        }
        walker.skip(length);
    }
    return false;
}

} // namespace

std::uint64_t locationIn(DwarfUnit& unit, AttrValue const& location, StackFrame const& frame, Budget& search) {
    switch (location.form) {
    case DW_FORM_sec_offset:
    case DW_FORM_data8: {
        DwarfWalker expression;
        return findEntry(unit, &location, frame.pc, search, expression)
                   ? evaluate(expression, expression.addrSize(), frame)
                   : 0;
    }
    // A block that stands in the entry itself knows no address size: its call frame is the frame pointer.
    case DW_FORM_block: return evaluate(DwarfWalker(location.data, location.value, 0), 0, frame);
    default: return 0;
    }
}

} // namespace ORV_3_30
