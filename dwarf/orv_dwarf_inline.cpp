// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "dwarf/orv_dwarf_inline.h"

#include "dwarf/orv_dildwarf.h"

namespace ORV_3_30 {

bool DWARFInlineInstance::readCall(DeclLocation& out) const {
    auto const* const body = static_cast<DWARFScope const*>(scope());
    return body != nullptr && DeclLocation::readCall(body->unit(), body->dieOffset(), out);
}

bool DWARFInlineInstance::hasCallSite() {
    DeclLocation call{};
    return readCall(call);
}

void DWARFInlineInstance::callSite(SymMgrObjectPtr<ISourceLocation>& out) {
    out = nullptr;
    DeclLocation call{};
    if (!readCall(call)) {
        return;
    }
    int id = m_fileId.load(std::memory_order_relaxed);
    if (id == k_notLookedUp) {
        id = call.sourceFileId();
        m_fileId.store(id, std::memory_order_relaxed);
    }
    if (id >= 0) {
        out = call.locationIn(id, call.unit->id());
    }
}

} // namespace ORV_3_30
