// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A scope's own ranges and thunks, one by one.
#include "symbols/orv_scope_iterators.h"

#include "symbols/orv_symbolrange.h"

namespace ORV_3_30 {
namespace {

/// Moves an index on as far as the end; true if it still stands on an element.
bool advance(std::size_t& index, std::size_t size) {
    if (index < size) {
        ++index;
    }
    return index < size;
}

} // namespace

SymMgrObjectPtr<ISymbolRange> RelRangeIterator::current() {
    RangeList const& ranges = m_scope->ranges();
    if (m_index >= ranges.size()) {
        return {};
    }
    return SymMgrObjectPtr<ISymbolRange>(new SymbolRange(ranges[m_index].start, ranges[m_index].end, m_scope, nullptr));
}

bool RelRangeIterator::next() { return advance(m_index, m_scope->ranges().size()); }

SymMgrObjectPtr<ISymbolRange> ThunkRangeIterator::current() {
    ThunkList const& thunks = m_scope->thunks();
    if (m_index >= thunks.size()) {
        return {};
    }
    Thunk* const thunk = thunks[m_index].get();
    return SymMgrObjectPtr<ISymbolRange>(
        new SymbolRange(thunk->address(), thunk->address() + thunk->size(), m_scope, thunk));
}

bool ThunkRangeIterator::next() { return advance(m_index, m_scope->thunks().size()); }

} // namespace ORV_3_30
