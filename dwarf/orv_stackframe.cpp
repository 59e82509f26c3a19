#include "dwarf/orv_stackframe.h"

namespace ORV_3_30 {

SymMgrObjectPtr<IStackFrameContext> IStackFrameContext::create() {
    return SymMgrObjectPtr<IStackFrameContext>(new StackFrameContext);
}

} // namespace ORV_3_30
