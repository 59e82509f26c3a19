// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Iterators over what a scope itself holds.
#pragma once

#include "core/orv_iterators.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_symbolrange.h"

namespace ORV_3_30 {

/// A scope's own ranges, each reported with that scope.
class RelRangeIterator final : public IndexIterator<SymMgrObjectPtr<ISymbolRange>> {
public:
    explicit RelRangeIterator(Scope* scope) : m_scope(scope) {}

private:
    std::size_t size() const override { return m_scope->ranges().size(); }
    SymMgrObjectPtr<ISymbolRange> at(std::size_t index) const override {
        RangeList::Range const& range = m_scope->ranges()[index];
        return SymMgrObjectPtr<ISymbolRange>(new SymbolRange(range.start, range.end, m_scope, nullptr));
    }

    Scope* m_scope;
};

/// A scope's thunks.
class ThunkRangeIterator final : public IndexIterator<SymMgrObjectPtr<ISymbolRange>> {
public:
    explicit ThunkRangeIterator(Scope* scope) : m_scope(scope) {}

private:
    std::size_t size() const override { return m_scope->thunks().size(); }
    SymMgrObjectPtr<ISymbolRange> at(std::size_t index) const override {
        Thunk* const thunk = m_scope->thunks()[index].get();
        return SymMgrObjectPtr<ISymbolRange>(
            new SymbolRange(thunk->address(), thunk->address() + thunk->size(), m_scope, thunk));
    }

    Scope* m_scope;
};

} // namespace ORV_3_30
