// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Expressions that tell an address in a frame (DWARF version 5, 2.5 and 2.6.1.1).
///
///     if (evaluateExpression(bytes, unit.forms(), ExpressionOf::Place, frame, address)) ...
///
/// One evaluator for the places of variables, frame bases and canonical frame addresses. Nobody has the program's
/// memory, so that what must be read from it is refused; and so is what would jump, which leaves one pass.
#pragma once

#include "dwarf/orv_dwarf_form.h"

namespace ORV_3_30 {

/// What an expression may ask of the frame that it stands for. Each is false for what is not known.
class IExpressionFrame {
public:
    virtual bool registerValue(std::uint64_t number, std::uint64_t& out) = 0;
    /// What DW_OP_fbreg counts from.
    virtual bool frameBase(std::uint64_t& out) = 0;
    /// The canonical frame address.
    virtual bool callFrame(std::uint64_t& out) = 0;

protected:
    ~IExpressionFrame() = default;
};

enum class ExpressionOf {
    Place,    ///< Of something in memory: what is in a register, or a value without a place, is not.
    FrameBase ///< A register alone stands for its content.
};

/// The address that is left on top. False for a value without a place, several pieces, the value of an entry, what
/// needs the program's memory, what the frame does not know, and damaged bytes.
bool evaluateExpression(DwarfBytes const& expression, FormContext const& forms, ExpressionOf use,
                        IExpressionFrame& frame, std::uint64_t& out);

} // namespace ORV_3_30
