// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Iterators over a symbol table.
///
/// They hold addresses and not positions, so that a load between two steps can't lead them astray:
/// they go on from where they stand with what the table holds then.
#pragma once

#include "core/orv_iterators.h"
#include "symbols/orv_symboltable.h"

#include <optional>

namespace ORV_3_30 {

/// The symbols that are candidates at one address, handed to a client's chooser.
class SymbolByAddrIterator final : public IndexIterator<SymMgrObjectPtr<ISymbol>> {
public:
    SymbolByAddrIterator(SymbolTable const& table, SymbolTable::Records candidates)
        : m_table(table), m_candidates(std::move(candidates)) {}

private:
    std::size_t size() const override { return m_candidates.size(); }
    SymMgrObjectPtr<ISymbol> at(std::size_t index) const override {
        return SymMgrObjectPtr<ISymbol>(m_table.scopeOf(*m_candidates[index])->symbol());
    }

    SymbolTable const& m_table;
    SymbolTable::Records m_candidates;
};

/// Ranges that touch a stretch, overlaps included: by start, then longest first.
class SymbolRangesIterator final : public SymMgrObject<SymbolRangeIterator> {
public:
    SymbolRangesIterator(SymbolTable& table, unsigned long long firstKey, unsigned long long start,
                         unsigned long long end, symbol_kind_t mask);

    SymMgrObjectPtr<ISymbolRange> current() override;
    bool next() override;
    void reset() override;

private:
    bool isReported(RangeRecord const& record) const;
    /// Goes on to the first key at or behind the present one, if that is one, at which something is reported.
    bool settle(bool isKey);

    SymbolTable& m_table;
    unsigned long long m_firstKey;
    unsigned long long m_start;
    unsigned long long m_end;
    symbol_kind_t m_mask;
    unsigned long long m_key = 0;
    SymbolTable::Records m_items; ///< What is reported at m_key; empty at the end.
    std::size_t m_index = 0;
};

/// A stretch cut into pieces with one winner each. Gaps are not reported.
class NonOverlappedSymbolRangesIterator final : public SymMgrObject<SymbolRangeIterator> {
public:
    NonOverlappedSymbolRangesIterator(SymbolTable& table, unsigned long long firstKey, unsigned long long start,
                                      unsigned long long end, symbol_kind_t mask, ISymbolChooser* resolver);

    SymMgrObjectPtr<ISymbolRange> current() override;
    bool next() override;
    void reset() override;

    // The present piece, without the objects that stand for it.

    /// Who wins there; null at the end.
    RangeRecord const* record() const { return m_isAtLimit && m_pieceStart == m_queryEnd ? nullptr : m_pieceRecord; }
    unsigned long long start() const { return m_pieceStart; }
    unsigned long long end() const { return m_pieceEnd; }

private:
    /// What may win from the key at which it was met until it ends.
    struct Candidate {
        RangeRecord const* record;
        SymbolTable::Rank rank;
        unsigned long long end;
    };
    static bool isWorse(Candidate const& a, Candidate const& b);

    RangeRecord const* choose();
    void meet(SymbolTable::Records const& records);
    /// Steps to the next key below the query's end; false at the limit.
    bool toNextKey();
    bool peekNextKey(unsigned long long& key) const;
    bool finish();
    bool closePiece(unsigned long long end);
    bool closeAtLimit(RangeRecord const& winner);
    bool extend(RangeRecord const* winner);

    SymbolTable& m_table;
    unsigned long long m_firstKey;
    unsigned long long m_queryStart;
    unsigned long long m_queryEnd;
    symbol_kind_t m_mask;
    ISymbolChooser* m_resolver; ///< The client's; may be null.

    unsigned long long m_key = 0;
    bool m_isAtLimit = false; ///< The key is the first one at or behind the query's end.
    unsigned long long m_cursor = 0;
    unsigned long long m_pieceStart = 0;
    unsigned long long m_pieceEnd = 0;
    RangeRecord const* m_pieceRecord = nullptr;

    std::vector<Candidate> m_candidates; ///< A heap, the best on top. Those that have ended go once they get there.
    std::optional<unsigned long long> m_metKey; ///< The last key whose records are among them.
    std::uint32_t m_metArrivals = 0;            ///< Of the table by then.
    /// Inlined bodies and scopes without a symbol have rules of their own: up to here, and in the stretch of this key,
    /// the table chooses.
    unsigned long long m_oddEnd = 0;
    std::optional<unsigned long long> m_oddLabelKey;
};

} // namespace ORV_3_30
