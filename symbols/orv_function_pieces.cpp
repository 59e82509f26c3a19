// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A sorted array of pieces; those without an inside are joined as in a union-find forest, with path halving.
#include "symbols/orv_function_pieces.h"

#include "symbols/orv_symbolrange.h"
#include "symbols/orv_symboltable_iterators.h"

#include <algorithm>

namespace ORV_3_30 {

FunctionPieces::FunctionPieces(SymbolTable& table) : m_table(table), m_version(table.arrivals()) {
    unsigned long long first = 0;
    if (table.floorKey(0, first)) {
        SymMgrObjectPtr<NonOverlappedSymbolRangesIterator> const walk(
            new NonOverlappedSymbolRangesIterator(table, first, 0, ~0ULL, symbol_kind_Function, nullptr));
        for (bool is = walk->record() != nullptr; is; is = walk->next()) {
            m_pieces.push_back({walk->start(), walk->end(), walk->record()});
            SymbolTable::Rank rank{};
            m_hasInlines |= table.rankOf(*walk->record(), rank) && rank.isInline;
        }
    }
    m_behind.reset(new std::atomic<std::uint32_t>[m_pieces.size() + 1]);
    for (std::size_t i = 0; i <= m_pieces.size(); ++i) {
        m_behind[i].store(static_cast<std::uint32_t>(i), std::memory_order_relaxed);
    }
}

std::size_t FunctionPieces::firstEndingFrom(unsigned long long address) const {
    auto const endsBelow = [](Piece const& piece, unsigned long long a) { return piece.end < a; };
    return static_cast<std::size_t>(std::lower_bound(m_pieces.begin(), m_pieces.end(), address, endsBelow) -
                                    m_pieces.begin());
}

SymMgrObjectPtr<ISymbolRange> FunctionPieces::range(std::size_t index, unsigned long long start,
                                                    unsigned long long end) const {
    Piece const& piece = m_pieces[index];
    return SymMgrObjectPtr<ISymbolRange>(new SymbolRange(std::max(piece.start, start), std::min(piece.end, end),
                                                         m_table.scopeOf(*piece.record), nullptr));
}

bool FunctionPieces::hasInner(std::size_t index, unsigned long long start, unsigned long long end) const {
    if (firstLeft(index) != index) {
        return false;
    }
    SymMgrObjectPtr<SymbolRangeIterator> inner;
    range(index, start, end)->innerRanges(inner);
    bool const isFound = inner && inner->current();
    if (!isFound && start <= m_pieces[index].start && m_pieces[index].end <= end) {
        m_behind[index].store(static_cast<std::uint32_t>(index + 1), std::memory_order_relaxed);
    }
    return isFound;
}

std::size_t FunctionPieces::nextWithInner(std::size_t index, std::size_t limit) const {
    std::size_t at = firstLeft(index);
    while (at < limit && !hasInner(at)) {
        at = firstLeft(at);
    }
    return std::min(at, limit);
}

/// The first piece at or behind one of which it is not known that nothing lies in it. Threads may shorten a way at the
/// same time: whatever of it they see leads there.
std::size_t FunctionPieces::firstLeft(std::size_t index) const {
    for (;;) {
        std::uint32_t const behind = m_behind[index].load(std::memory_order_relaxed);
        if (behind == index) {
            return index;
        }
        std::uint32_t const further = m_behind[behind].load(std::memory_order_relaxed);
        m_behind[index].store(further, std::memory_order_relaxed);
        index = further;
    }
}

} // namespace ORV_3_30
