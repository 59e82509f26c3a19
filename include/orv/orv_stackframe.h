// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Registers of a stack frame, set by the client before it asks for a stack variable.
///
///     SymMgrObjectPtr<IStackFrameContext> frame = IStackFrameContext::create();
///     frame->setRegister(0, rsp);
///     frame->setRegister(1, rbp);                       // see below
///     bank->findStackVariable(address.get(), stackAddress, frame, variable, &isInteger);
///
/// With the modern reading (orv_reading.h) both are what the registers hold at pc, the one of the stack pointer and the
/// one that frame pointers are kept in, whether or not the function keeps one: rsp and rbp, esp and ebp. The rest
/// follows from the debug information and from .eh_frame or .debug_frame. Not found, with a line in the log, is what
/// hangs on other registers or on the program's memory, as the frame of a 32-bit main of gcc does, and what lies in no
/// call frame information.
///
/// With the classic reading what to set follows from the form of the function's DW_AT_frame_base (DWARF version 4,
/// 3.3.5):
///
///     form of the frame base                                stack pointer      frame pointer
///     location list or block of register offsets            its value at pc    its value at pc
///         (DW_OP_breg4 to breg7; gcc -gdwarf-2)
///     block DW_OP_call_frame_cfa (gcc -gdwarf-3)            not used           canonical frame address
///     location list that gives DW_OP_call_frame_cfa         not used           canonical frame address less
///                                                                              two addresses
///     block DW_OP_reg6 (clang, x86-64 with a frame pointer) not used           its value at pc
///     block DW_OP_reg4 (clang, 32-bit without one)          its value at pc    not used
///
/// The canonical frame address is the stack pointer's value in the caller at the call. In a function that sets its
/// frame pointer up first of all it is the frame pointer's value plus two addresses: 16 bytes, or 8 in a 32-bit
/// program. A client that does not know the form sets the frame pointer to one and then to the other.
///
/// Any other form counts as a base of 0: DW_OP_reg5 and DW_OP_reg7, by which clang describes 32-bit functions with a
/// frame pointer and 64-bit ones without, and expressions of several operations, as gcc has them for a 32-bit main.
/// What counts from such a base has no place, or a wrong one near 0.
///
/// Units of DWARF 4 have expressions of a form that is not read (DW_FORM_exprloc), so that their variables are at 0
/// unless a location list places them, and function ends that are distances: in a linked program no variable is found.
#pragma once

#include "orv/orv_object.h"

namespace ORV_3_30 {

/// Not changed by questions. Threads that share one must not set it meanwhile.
class ORV_API IStackFrameContext : public ISymMgrObject {
public:
    /// A frame with both registers 0. Its count has no lock: it belongs to one thread at a time.
    ORV_API static SymMgrObjectPtr<IStackFrameContext> create();

    /// which: 0 the stack pointer, 1 the frame pointer; any other does nothing.
    virtual void setRegister(unsigned int which, unsigned long long value) = 0;
    /// 0 for any other which.
    virtual unsigned long long getRegister(unsigned int which) = 0;

protected:
    ~IStackFrameContext() = default;
};

} // namespace ORV_3_30
