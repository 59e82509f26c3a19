// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Inlined bodies (DWARF version 4, 3.3.8).
///
/// Each is a scope of its own inside the function that it was inlined into, with a symbol named after the
/// inlined function and an instance that knows the call. They are made one level at a time, when somebody asks
/// what lies in the level above.
#pragma once

#include "dwarf/orv_dwarf_scope.h"
#include "symbols/orv_thunk.h"

#include <atomic>

namespace ORV_3_30 {

/// The entry of the call is read when somebody asks. The file is looked up at the first question, and kept in an
/// atomic: threads share instances, and find the same.
class DWARFInlineInstance final : public InlineInstance {
public:
    explicit DWARFInlineInstance(DWARFScope* scope) : InlineInstance(scope) {}

    /// Null without a call site, and where the number of its file is none of the unit's.
    void callSite(SymMgrObjectPtr<ISourceLocation>& out) override;
    /// True if the entry tells file and line, whether or not the file is known.
    bool hasCallSite() override;

private:
    static constexpr int k_notLookedUp = -2;
    bool readCall(DeclLocation& out) const;
    std::atomic<int> m_fileId{k_notLookedUp};
};

class DWARFInlineInstanceScope final : public DWARFScope {
public:
    DWARFInlineInstanceScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, Scope* parent)
        : DWARFScope(unit, dieOffset, parent), m_inlineInstance(new DWARFInlineInstance(this)) {}
    ~DWARFInlineInstanceScope() override { m_inlineInstance->leaveScope(); }

    IInlineInstance* inlineInstance() override { return m_inlineInstance.get(); }

private:
    SymMgrObjectPtr<DWARFInlineInstance> m_inlineInstance;
};

} // namespace ORV_3_30
