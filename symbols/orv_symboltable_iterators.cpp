// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Walks over the table by key: all that overlaps, or disjoint pieces with one winner each.
#include "symbols/orv_symboltable_iterators.h"

#include "symbols/orv_symbolrange.h"

#include <algorithm>

namespace ORV_3_30 {

// --- SymbolRangesIterator

SymbolRangesIterator::SymbolRangesIterator(SymbolTable& table, unsigned long long firstKey, unsigned long long start,
                                           unsigned long long end, symbol_kind_t mask)
    : m_table(table), m_firstKey(firstKey), m_start(start), m_end(end), m_mask(mask) {
    reset();
}

void SymbolRangesIterator::reset() {
    m_key = m_firstKey;
    settle(true);
}

bool SymbolRangesIterator::settle(bool isKey) {
    m_index = 0;
    m_items.clear();
    while (isKey && m_key <= m_end && m_items.empty()) {
        // What started before the first key comes out there.
        m_items = m_key == m_firstKey ? m_table.recordsAlive(m_key) : m_table.recordsFrom(m_key);
        auto const isLeftOut = [this](RangeRecord const* record) { return !isReported(*record); };
        m_items.erase(std::remove_if(m_items.begin(), m_items.end(), isLeftOut), m_items.end());
        isKey = !m_items.empty() || m_table.keyAfter(m_key, m_key);
    }
    return !m_items.empty();
}

bool SymbolRangesIterator::isReported(RangeRecord const& record) const {
    unsigned long long const low = std::max(record.start, m_start);
    unsigned long long const high = std::min(record.end.load(), m_end);
    if (low > high) {
        return false;
    }
    if (low == high) {
        // What only touches is out, unless the record or the query has no extent.
        bool const endsThere = record.end == m_start && !record.isPoint();
        bool const beginsThere = record.start >= m_end && m_start != m_end;
        if (endsThere || beginsThere) {
            return false;
        }
    }
    symbol_kind_t kind{};
    return m_table.kindOf(record, kind) && (kind & m_mask) != 0;
}

SymMgrObjectPtr<ISymbolRange> SymbolRangesIterator::current() {
    if (m_index >= m_items.size()) {
        return {};
    }
    RangeRecord const& record = *m_items[m_index];
    return SymMgrObjectPtr<ISymbolRange>(new SymbolRange(record.start, record.end, m_table.scopeOf(record), nullptr));
}

bool SymbolRangesIterator::next() {
    if (m_items.empty()) {
        return false;
    }
    return ++m_index < m_items.size() || settle(m_table.keyAfter(m_key, m_key));
}

// --- NonOverlappedSymbolRangesIterator

namespace {

/// What is still to be made is made for one record alone.
bool haveOneScope(RangeRecord const& a, RangeRecord const& b) {
    Scope const* const scope = a.scope.load(std::memory_order_acquire);
    return &a == &b || (scope != nullptr && scope == b.scope.load(std::memory_order_acquire));
}

} // namespace

NonOverlappedSymbolRangesIterator::NonOverlappedSymbolRangesIterator(SymbolTable& table, unsigned long long firstKey,
                                                                     unsigned long long start, unsigned long long end,
                                                                     symbol_kind_t mask, ISymbolChooser* resolver)
    : m_table(table), m_firstKey(firstKey), m_queryStart(start), m_queryEnd(end), m_mask(mask), m_resolver(resolver) {
    reset();
}

void NonOverlappedSymbolRangesIterator::reset() {
    m_key = m_firstKey;
    // The lowest key may lie behind the whole stretch.
    m_isAtLimit = m_key >= m_queryEnd;
    m_cursor = std::max(m_key, m_queryStart);
    m_pieceRecord = nullptr;
    m_metKey.reset();
    next();
}

SymMgrObjectPtr<ISymbolRange> NonOverlappedSymbolRangesIterator::current() {
    if (record() == nullptr) {
        return {};
    }
    return SymMgrObjectPtr<ISymbolRange>(
        new SymbolRange(m_pieceStart, m_pieceEnd, m_table.scopeOf(*m_pieceRecord), nullptr));
}

/// Among equals the innermost wins; of those that start together, the one that stands first in the list.
bool NonOverlappedSymbolRangesIterator::isWorse(Candidate const& a, Candidate const& b) {
    if (int const byRank = a.rank.compare(b.rank)) {
        return byRank < 0;
    }
    return a.record->start != b.record->start ? a.record->start < b.record->start : InListOrder()(b.record, a.record);
}

/// Takes in what is alive at the key, or starts there.
void NonOverlappedSymbolRangesIterator::meet(SymbolTable::Records const& records) {
    for (RangeRecord const* const record : records) {
        symbol_kind_t kind{};
        Candidate candidate{record, {}, record->end};
        bool const hasSymbol = m_table.kindOf(*record, kind) && m_table.rankOf(*record, candidate.rank);
        if (hasSymbol && (kind & m_mask) == 0) {
            continue;
        }
        if (!hasSymbol || candidate.rank.isInline) {
            m_oddEnd = std::max(m_oddEnd, candidate.end);
            m_oddLabelKey = record->isPoint() ? m_key : m_oddLabelKey;
            continue;
        }
        m_candidates.push_back(candidate);
        std::push_heap(m_candidates.begin(), m_candidates.end(), isWorse);
    }
}

/// Steps go from key to key, so that all that is alive has been met on the way.
RangeRecord const* NonOverlappedSymbolRangesIterator::choose() {
    if (m_resolver != nullptr) {
        return m_table.chooseRecord(m_cursor, m_mask, m_key, m_resolver);
    }
    std::uint32_t const arrivals = m_table.arrivals();
    if (!m_metKey || m_metArrivals != arrivals) {
        m_candidates.clear();
        m_oddEnd = 0;
        m_oddLabelKey.reset();
        meet(m_table.recordsAlive(m_key));
    } else if (*m_metKey != m_key) {
        meet(m_table.recordsFrom(m_key));
    }
    m_metKey = m_key;
    m_metArrivals = arrivals;
    if (m_cursor < m_oddEnd || m_oddLabelKey == m_key) {
        return m_table.chooseRecord(m_cursor, m_mask, m_key, nullptr);
    }
    auto const hasEnded = [this](Candidate const& candidate) {
        bool const isLabelHere = candidate.record->isPoint() && candidate.record->start == m_key;
        return candidate.end <= m_cursor && !isLabelHere;
    };
    while (!m_candidates.empty() && hasEnded(m_candidates.front())) {
        std::pop_heap(m_candidates.begin(), m_candidates.end(), isWorse);
        m_candidates.pop_back();
    }
    return m_candidates.empty() ? nullptr : m_candidates.front().record;
}

bool NonOverlappedSymbolRangesIterator::peekNextKey(unsigned long long& key) const {
    return m_table.keyAfter(m_key, key) && key < m_queryEnd;
}

bool NonOverlappedSymbolRangesIterator::toNextKey() {
    unsigned long long next = 0;
    m_isAtLimit = !peekNextKey(next);
    if (!m_isAtLimit) {
        m_key = next;
    }
    return !m_isAtLimit;
}

bool NonOverlappedSymbolRangesIterator::finish() {
    m_isAtLimit = true;
    m_pieceStart = m_queryEnd;
    return false;
}

bool NonOverlappedSymbolRangesIterator::closePiece(unsigned long long end) {
    m_pieceEnd = end;
    m_cursor = end;
    return true;
}

bool NonOverlappedSymbolRangesIterator::closeAtLimit(RangeRecord const& winner) {
    if (winner.end < m_queryEnd && !winner.isPoint()) {
        return closePiece(winner.end);
    }
    m_isAtLimit = true;
    return closePiece(m_queryEnd);
}

bool NonOverlappedSymbolRangesIterator::next() {
    if (m_isAtLimit || m_cursor >= m_queryEnd) {
        return finish();
    }
    RangeRecord const* winner = choose();
    while (winner == nullptr) {
        if (!toNextKey()) {
            return finish();
        }
        m_cursor = m_key;
        winner = choose();
    }
    m_pieceStart = m_cursor;
    m_pieceRecord = winner;
    return extend(winner);
}

/// Follows a winner over the boundaries for as long as it goes on winning.
bool NonOverlappedSymbolRangesIterator::extend(RangeRecord const* winner) {
    unsigned long long boundary = 0;
    while (peekNextKey(boundary)) {
        if (winner->isPoint()) {
            m_key = boundary;
            return closePiece(boundary); // a label stands to the next boundary
        }
        if (winner->end <= boundary) {
            if (winner->end == boundary) {
                m_key = boundary;
            }
            return closePiece(winner->end); // from there on: another winner, or a gap
        }
        m_key = boundary;
        m_cursor = boundary;
        winner = choose();
        if (winner == nullptr || !haveOneScope(*winner, *m_pieceRecord)) {
            return closePiece(boundary);
        }
    }
    return closeAtLimit(*winner);
}

} // namespace ORV_3_30
