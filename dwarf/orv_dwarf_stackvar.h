// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Which local variable of a function owns a stack address.
#pragma once

#include "dwarf/orv_dwarf_location.h"
#include "dwarf/orv_dwarf_scope.h"
#include "dwarf/orv_dwarf_visitor.h"

#include <map>
#include <tuple>
#include <vector>

namespace ORV_3_30 {

/// Takes the first variable in the order of the file that holds the address, with the classic reading in whichever
/// block it stands.
class StackVariableVisitor final : public DIEVisitor {
public:
    StackVariableVisitor(DWARFDebugInfoLoader& loader, StackFrame& frame, unsigned long long targetAddress)
        : m_loader(loader), m_frame(frame), m_targetAddress(targetAddress) {}

    bool visit(DwarfUnit& unit, AttrBindings& die) override;
    /// With the modern reading blocks that pc is not in are passed over, and functions, which have frames of their own.
    bool enters(DwarfUnit& unit, AttrBindings& die) override;

    /// The variable, with the member in its name where one holds the address. Null if none was found.
    SymMgrObjectPtr<DWARFSymbol> const& resultSymbol() const { return m_resultSymbol; }
    /// Of the variable's type.
    bool isInteger() const { return m_isInteger; }

private:
    DWARFDebugInfoLoader& m_loader;
    StackFrame& m_frame;
    unsigned long long m_targetAddress;
    SymMgrObjectPtr<DWARFSymbol> m_resultSymbol;
    bool m_isInteger = false;
};

/// Answers by frame, and then by address. Guarded by its
/// owner. The symbols have no scope; what a client still holds at the end loses what leads back to the bank.
class StackAnswers {
public:
    /// Stack pointer and frame pointer, and with the modern reading pc: they hold for many functions, and the place of
    /// a variable hangs on the instruction. With the classic one pc is 0.
    struct Frame {
        unsigned long long stackPointer;
        unsigned long long framePointer;
        unsigned long long pc;
        bool operator<(Frame const& other) const {
            return std::tie(stackPointer, framePointer, pc) <
                   std::tie(other.stackPointer, other.framePointer, other.pc);
        }
    };
    struct Answer {
        SymMgrObjectPtr<DWARFSymbol> symbol;
        bool isInteger;
    };
    StackAnswers() = default;
    StackAnswers(StackAnswers const&) = delete;
    StackAnswers& operator=(StackAnswers const&) = delete;
    ~StackAnswers();

    /// Null if there is none.
    Answer const* find(Frame const& frame, unsigned long long address) const;
    /// Where the next answer above or below is the same variable, it gives the symbol.
    Answer const& add(Frame const& frame, unsigned long long address, Answer answer);

private:
    void forgetAll();

    std::map<Frame, std::map<unsigned long long, Answer>> m_answers;
    std::size_t m_count = 0;
    std::size_t m_bytes = 0;                          ///< Of names.
    std::vector<SymMgrObjectPtr<DWARFSymbol>> m_lent; ///< Of answers that were forgotten.
};

} // namespace ORV_3_30
