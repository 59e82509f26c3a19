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

namespace ORV_3_30 {

/// The file is looked up at the first question. Threads share instances.
class DWARFInlineInstance final : public InlineInstance {
public:
    DWARFInlineInstance(DWARFScope* scope, InlineTree::Body const& body) : InlineInstance(scope), m_body(body) {}

    /// Null without a call site, and where the number of its file is none of the unit's.
    void callSite(SymMgrObjectPtr<ISourceLocation>& out) override;
    /// True if the entry tells file and line, whether or not the file is known.
    bool hasCallSite() override;

private:
    DeclLocation call() const;

    InlineTree::Body const& m_body; ///< Stays as long as the scope.
    Once<SymMgrObjectPtr<ISourceLocation>> m_location;
};

class DWARFInlineInstanceScope final : public DWARFScope {
public:
    DWARFInlineInstanceScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, Scope* parent,
                             InlineTree::Body const& body)
        : DWARFScope(unit, dieOffset, parent, unit), m_inlineInstance(new DWARFInlineInstance(this, body)) {}
    ~DWARFInlineInstanceScope() override { m_inlineInstance->leaveScope(); }

    IInlineInstance* inlineInstance() override { return m_inlineInstance.get(); }

private:
    SymMgrObjectPtr<DWARFInlineInstance> m_inlineInstance;
};

} // namespace ORV_3_30
