// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// One range in a symbol table.
#pragma once

#include "format/orv_raw_symbol.h"
#include "symbols/orv_merge.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ORV_3_30 {

class Scope;

/// Lives as long as the table. Half open, in pseudo addresses; start equal to end is a label.
///
/// The ranges of symbols come by the tens of thousands, and few are ever asked for: the record is the symbol, and its
/// scope a view of it, made when somebody needs it. A merge changes both. Only of a symbol that came with its scope
/// the scope alone tells.
struct RangeRecord {
    unsigned long long start = 0;
    std::atomic<unsigned long long> end{0}; ///< A merge may move it while others read.
    RangeRecord* next = nullptr;            ///< The next record with the same start, by end, the greatest first.
    std::atomic<Scope*> scope{nullptr};     ///< The table holds a reference on it. Null: not made yet.
    std::atomic<char const*> name{nullptr}; ///< Null if only the scope says what stands here.
    std::uint64_t token = 0;                ///< The maker's own.
    std::uint32_t order = 0;                ///< Arrival: of equal ends, the one that came first stands in front.
    std::uint8_t maker = 0;                 ///< Number of who makes the scope.
    std::atomic<std::uint8_t> kind{0};
    std::atomic<std::uint8_t> visibility{0};

    RangeRecord(unsigned long long from, unsigned long long to) : start(from), end(to) {}
    explicit RangeRecord(MergeSide const& symbol) : start(symbol.firstStart), end(symbol.lastEnd) { take(symbol); }

    bool isPoint() const { return start == end; }
    /// True if the record itself says what stands here.
    bool isSymbol() const { return name != nullptr; }
    void take(MergeSide const& symbol) {
        name = symbol.name;
        kind = static_cast<std::uint8_t>(symbol.kind);
        visibility = static_cast<std::uint8_t>(symbol.visibility);
    }
    symbol_kind_t symbolKind() const { return static_cast<symbol_kind_t>(kind.load()); }
    symbol_visibility_t symbolVisibility() const { return static_cast<symbol_visibility_t>(visibility.load()); }
    MergeSide side() const { return {name, start, end, false, symbolVisibility(), symbolKind()}; }
};

/// The greatest end first, and of equal ends the one that came first.
struct InListOrder {
    bool operator()(RangeRecord const* a, RangeRecord const* b) const {
        unsigned long long const aEnd = a->end.load(std::memory_order_relaxed);
        unsigned long long const bEnd = b->end.load(std::memory_order_relaxed);
        return aEnd != bEnd ? aEnd > bEnd : a->order < b->order;
    }
};

/// Raw symbols on their way into a table, in the order of arrival.
class RawSymbolBatch {
public:
    explicit RawSymbolBatch(std::size_t capacity) { m_symbols.reserve(capacity); }

    void add(RawSymbol const& symbol) { m_symbols.push_back(symbol); }
    std::size_t size() const { return m_symbols.size(); }
    RawSymbol const& operator[](std::size_t index) const { return m_symbols[index]; }

private:
    std::vector<RawSymbol> m_symbols;
};

} // namespace ORV_3_30
