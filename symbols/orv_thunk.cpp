// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Thunks and inlined calls, told by their scope.
#include "symbols/orv_thunk.h"

#include "symbols/orv_scope.h"
#include "symbols/orv_scope_iterators.h"

namespace ORV_3_30 {

char const* ImportThunk::name() {
    ISymbol* const symbol = scope() != nullptr ? scope()->symbol() : nullptr;
    return symbol != nullptr ? symbol->name() : "";
}

ISymbol* InlineInstance::symbol() { return m_scope != nullptr ? m_scope->symbol() : nullptr; }

void InlineInstance::ranges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) {
    out = m_scope != nullptr ? new RelRangeIterator(m_scope) : nullptr;
}

} // namespace ORV_3_30
