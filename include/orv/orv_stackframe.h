/// Registers of a stack frame, set by the client before it asks for a stack variable.
#pragma once

#include "orv/orv_object.h"

namespace ORV_3_30 {

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
