// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The call of an inlined body, as its entry has it.
#include "dwarf/orv_dwarf_inline.h"

#include "dwarf/orv_dildwarf.h"

namespace ORV_3_30 {

DeclLocation DWARFInlineInstance::call() const {
    auto const* const body = static_cast<DWARFScope const*>(scope());
    return body != nullptr ? DeclLocation::ofCall(body->unit(), m_body) : DeclLocation{};
}

bool DWARFInlineInstance::hasCallSite() { return call().isKnown(); }

void DWARFInlineInstance::callSite(SymMgrObjectPtr<ISourceLocation>& out) {
    out = nullptr;
    DeclLocation const place = call();
    if (place.isKnown()) {
        out = m_location.get([&] {
            int const id = place.sourceFileId();
            SymMgrObjectPtr<ISourceLocation> const made(id >= 0 ? place.locationIn(id, place.unit->id()) : nullptr);
            return std::make_unique<SymMgrObjectPtr<ISourceLocation>>(made);
        });
    }
}

} // namespace ORV_3_30
