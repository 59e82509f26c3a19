// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Locations of variables: expressions, by their first operation or as a whole, and what they ask of a frame (DWARF
// version 4, 2.5 and 2.6).
#include "dwarf/orv_dwarf_location.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_loclist.h"
#include "dwarf/orv_dwarf_reader.h"

namespace ORV_3_30 {
namespace {

constexpr unsigned int k_stackPointer = 0;
constexpr unsigned int k_framePointer = 1;

bool isList(AttrValue const& location) { return location.form == DW_FORM_sec_offset || location.form == DW_FORM_data8; }

} // namespace

StackFrame::StackFrame(DwarfUnit& unit, unsigned long long pc, IStackFrameContext& context, Budget& search)
    : m_unit(unit), m_pc(pc), m_context(context), m_isModern(unit.reader().isModern()),
      m_lookups(m_isModern ? m_own : search), m_registers(frameRegistersOf(unit.reader().architecture())) {
    m_own.refill(unit.reader().budgets().searchBytes());
}

void StackFrame::setBase(AttrValue const* location) {
    if (location == nullptr) {
        return;
    }
    if (!isModern()) {
        m_base = placeByFirstOperation(m_unit, *location);
        return;
    }
    m_hasBase = evaluate(m_unit, *location, ExpressionOf::FrameBase, m_base);
    if (!m_hasBase && !m_wantsCallFrames) {
        ORV_WARN("No frame base is known for " << m_pc);
    }
}

bool StackFrame::placeOf(DwarfUnit& unit, AttrValue const& location, std::uint64_t& out) {
    if (isModern()) {
        return evaluate(unit, location, ExpressionOf::Place, out);
    }
    out = placeByFirstOperation(unit, location);
    return true;
}

// --- The classic reading

/// The registers are those of 32-bit and 64-bit x86 together: 4 and 7 the stack pointers, 5 and 6 the frame
/// pointers. A plain register gives its content: it is the frame base that is looked for.
std::uint64_t StackFrame::firstOperation(DwarfBytes const& expression, unsigned int addrSize) {
    DwarfWalker walker(expression.data, expression.size, addrSize);
    unsigned char operation = 0;
    if (walker.getUnsigned1(operation) != status_Ok) {
        return 0;
    }
    auto const signedOperand = [&] { return static_cast<std::uint64_t>(walker.signedLeb()); };
    switch (operation) {
    case DW_OP_plus_uconst: return walker.unsignedLeb();
    case DW_OP_reg4: return m_context.getRegister(k_stackPointer);
    case DW_OP_reg6: return m_context.getRegister(k_framePointer);
    case DW_OP_breg4:
    case DW_OP_breg7: return m_context.getRegister(k_stackPointer) + signedOperand();
    case DW_OP_breg5:
    case DW_OP_breg6: return m_context.getRegister(k_framePointer) + signedOperand();
    case DW_OP_fbreg: return m_base + signedOperand();
    case DW_OP_call_frame_cfa: return m_context.getRegister(k_framePointer) + 2 * std::uint64_t{addrSize};
    default: return 0;
    }
}

/// 0 for other forms, DW_FORM_exprloc among them, without an entry for pc, and for other operations.
std::uint64_t StackFrame::placeByFirstOperation(DwarfUnit& unit, AttrValue const& location) {
    DwarfBytes expression;
    if (isList(location)) {
        return findLocation(unit, &location, m_pc, m_lookups, expression)
                   ? firstOperation(expression, unit.forms().addrSize)
                   : 0;
    }
    // A block that stands in the entry itself knows no address size: its call frame is the frame pointer.
    return location.form == DW_FORM_block ? firstOperation({location.data, location.value}, 0) : 0;
}

// --- The modern reading

/// Of an entry's unit: a base may stand in another one than the function.
bool StackFrame::evaluate(DwarfUnit& unit, AttrValue const& location, ExpressionOf use, std::uint64_t& out) {
    DwarfBytes expression{location.data, location.value};
    if (isList(location)) {
        // Many variables may share what is long.
        if (!findLocation(unit, &location, m_pc, m_lookups, expression) || !m_lookups.spend(expression.size)) {
            return false;
        }
    } else if (location.form != DW_FORM_block && location.form != DW_FORM_exprloc) {
        return false;
    }
    return evaluateExpression(expression, unit.forms(), use, *this, out);
}

bool StackFrame::registerValue(std::uint64_t number, std::uint64_t& out) {
    if (m_registers == nullptr || (number != m_registers->stackPointer && number != m_registers->framePointer)) {
        return false;
    }
    out = m_context.getRegister(number == m_registers->stackPointer ? k_stackPointer : k_framePointer);
    return true;
}

/// Not while it is looked for itself.
bool StackFrame::frameBase(std::uint64_t& out) {
    out = m_base;
    return m_hasBase;
}

bool StackFrame::callFrame(std::uint64_t& out) {
    if (m_hasCallFrame == known_NotYet) {
        m_hasCallFrame = known_Never; // while it is looked for
        m_hasCallFrame = findCallFrame() ? known_Yes : known_Never;
    }
    out = m_callFrame;
    return m_hasCallFrame == known_Yes;
}

bool StackFrame::findCallFrame() {
    FrameRule rule{};
    FormContext forms;
    CallFrames const* const callFrames = m_unit.reader().madeCallFrames();
    m_wantsCallFrames = callFrames == nullptr;
    if (m_wantsCallFrames) {
        return false;
    }
    if (!callFrames->ruleAt(m_pc, m_lookups, rule, forms.addrSize)) {
        ORV_WARN("No call frame information for " << m_pc);
        return false;
    }
    bool isKnown = false;
    if (rule.kind == FrameRule::kind_Expression) {
        isKnown = m_lookups.spend(rule.expression.size) &&
                  evaluateExpression(rule.expression, forms, ExpressionOf::Place, *this, m_callFrame);
    } else {
        isKnown = registerValue(rule.registerNumber, m_callFrame);
        m_callFrame += static_cast<std::uint64_t>(rule.offset);
        m_callFrame = forms.addrSize == 4 ? m_callFrame & 0xFFFFFFFF : m_callFrame;
    }
    if (!isKnown) {
        ORV_WARN("The call frame at " << m_pc << " hangs on more than stack pointer and frame pointer");
    }
    return isKnown;
}

} // namespace ORV_3_30
