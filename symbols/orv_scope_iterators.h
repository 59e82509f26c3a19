// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Iterators over what a scope itself holds.
#pragma once

#include "symbols/orv_scope.h"

namespace ORV_3_30 {

/// A scope's own ranges, each reported with that scope.
class RelRangeIterator final : public SymMgrObject<SymbolRangeIterator> {
public:
    explicit RelRangeIterator(Scope* scope) : m_scope(scope) {}

    SymMgrObjectPtr<ISymbolRange> current() override;
    bool next() override;
    void reset() override { m_index = 0; }

private:
    Scope* m_scope;
    std::size_t m_index = 0;
};

/// A scope's thunks.
class ThunkRangeIterator final : public SymMgrObject<SymbolRangeIterator> {
public:
    explicit ThunkRangeIterator(Scope* scope) : m_scope(scope) {}

    SymMgrObjectPtr<ISymbolRange> current() override;
    bool next() override;
    void reset() override { m_index = 0; }

private:
    Scope* m_scope;
    std::size_t m_index = 0;
};

} // namespace ORV_3_30
