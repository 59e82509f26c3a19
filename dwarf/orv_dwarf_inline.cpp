#include "dwarf/orv_dwarf_inline.h"

#include "dwarf/orv_dildwarf.h"

namespace ORV_3_30 {

DWARFInlineInstance::DWARFInlineInstance(DWARFCompilationUnit& unit, std::uint64_t dieOffset, Scope* scope,
                                         ILock* countLock)
    : InlineInstance(scope, countLock), m_hasCall(DeclLocation::readCall(unit, dieOffset, m_call)) {}

void DWARFInlineInstance::callSite(SymMgrObjectPtr<ISourceLocation>& out) {
    out = nullptr;
    if (!m_hasCall) {
        return;
    }
    int id = m_fileId.load(std::memory_order_relaxed);
    if (id == k_notLookedUp) {
        id = m_call.sourceFileId();
        m_fileId.store(id, std::memory_order_relaxed);
    }
    if (id >= 0) {
        out = m_call.locationIn(id, m_call.unit->id());
    }
}

DWARFInlineInstanceScope::DWARFInlineInstanceScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, Scope* parent)
    : DWARFScope(unit, dieOffset, parent),
      m_inlineInstance(new DWARFInlineInstance(unit, dieOffset, this, unit.loader()->inlineCountLock())) {}

} // namespace ORV_3_30
