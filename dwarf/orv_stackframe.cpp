// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A frame context from plain numbers.
#include "dwarf/orv_stackframe.h"

namespace ORV_3_30 {

SymMgrObjectPtr<IStackFrameContext> IStackFrameContext::create() {
    return SymMgrObjectPtr<IStackFrameContext>(new StackFrameContext);
}

} // namespace ORV_3_30
