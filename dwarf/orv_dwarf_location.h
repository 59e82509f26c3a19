// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Where a local variable lives. The classic reading knows the handful of forms that one relative to a frame has
/// (DWARF version 4, 2.5 and 2.6), of an expression its first operation; the modern one evaluates expressions.
#pragma once

#include "dwarf/orv_dwarf_expression.h"
#include "dwarf/orv_dwarf_frame.h"
#include "dwarf/orv_dwarf_registers.h"
#include "dwarf/orv_dwarf_unit.h"
#include "orv/orv_stackframe.h"

namespace ORV_3_30 {

/// The frame that is asked about: what a client tells of it, and what follows from that. For one question.
class StackFrame final : public IExpressionFrame {
public:
    /// unit: the function's. search: pays for what the classic reading looks up; the modern one, which looks up more,
    /// has a budget of its own, so that what is too dear leaves enough for what comes after it.
    StackFrame(DwarfUnit& unit, unsigned long long pc, IStackFrameContext& context, Budget& search);

    /// Finds the frame base, from the function's attribute; null without one.
    void setBase(AttrValue const* location);
    /// Where a variable of a unit lives. With the classic reading always true: 0 for one that lives nowhere.
    bool placeOf(DwarfUnit& unit, AttrValue const& location, std::uint64_t& out);
    /// True if it was stopped by that the reader has not made the call frames yet: they are made under no lock, and the
    /// question is put again.
    bool wantsCallFrames() const { return m_wantsCallFrames; }
    bool isModern() const { return m_isModern; }
    /// For lists that lie elsewhere than what is asked for.
    Budget& lookups() { return m_lookups; }
    unsigned long long pc() const { return m_pc; }

    bool registerValue(std::uint64_t number, std::uint64_t& out) override;
    bool frameBase(std::uint64_t& out) override;
    bool callFrame(std::uint64_t& out) override;

private:
    enum Known : unsigned char { known_NotYet, known_Yes, known_Never };

    std::uint64_t placeByFirstOperation(DwarfUnit& unit, AttrValue const& location);
    std::uint64_t firstOperation(DwarfBytes const& expression, unsigned int addrSize);
    bool evaluate(DwarfUnit& unit, AttrValue const& location, ExpressionOf use, std::uint64_t& out);
    bool findCallFrame();

    DwarfUnit& m_unit; ///< Of the function.
    unsigned long long m_pc;
    IStackFrameContext& m_context;
    bool m_isModern;
    Budget m_own{"places in frames"};
    Budget& m_lookups;
    FrameRegisters const* m_registers;
    std::uint64_t m_base = 0;
    bool m_hasBase = false;
    std::uint64_t m_callFrame = 0;
    Known m_hasCallFrame = known_NotYet;
    bool m_wantsCallFrames = false;
};

} // namespace ORV_3_30
