// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// One range in a symbol table.
#pragma once

#include "format/orv_raw_symbol.h"
#include "symbols/orv_merge.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>

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

/// Raw symbols on their way into a table, in the order of arrival. The records are made once, where
/// they stay: a table takes the batch over.
class RawSymbolBatch {
public:
    /// No more than capacity symbols will come.
    explicit RawSymbolBatch(std::size_t capacity) : m_records(new Storage[capacity]) {}

    void add(RawSymbol const& symbol) { place(m_count++, symbol); }
    /// Drops the symbols whose name is empty. Names lie about in megabytes of strings: looking at each
    /// is a matter of fetching it in time.
    void dropUnnamed() {
        constexpr std::size_t k_ahead = 16;
        std::size_t kept = 0;
        for (std::size_t i = 0; i < m_count; ++i) {
            if (i + k_ahead < m_count) {
                __builtin_prefetch((*this)[i + k_ahead].name.load());
            }
            RangeRecord const& record = (*this)[i];
            if (*record.name.load() == '\0') {
                continue;
            }
            if (kept != i) {
                place(kept, symbol(i));
            }
            ++kept;
        }
        m_count = kept;
    }
    /// Gives back the room that no symbol has come for, if that is most of it.
    void shrink(std::size_t capacity) {
        if (m_count >= capacity / 4) {
            return;
        }
        RawSymbolBatch smaller(m_count);
        for (std::size_t i = 0; i < m_count; ++i) {
            smaller.add(symbol(i));
        }
        *this = std::move(smaller);
    }
    std::size_t size() const { return m_count; }
    RangeRecord& operator[](std::size_t index) {
        return *std::launder(reinterpret_cast<RangeRecord*>(&m_records[index]));
    }

private:
    using Storage = std::aligned_storage_t<sizeof(RangeRecord), alignof(RangeRecord)>;

    RawSymbol symbol(std::size_t index) {
        RangeRecord const& record = (*this)[index];
        return {record.name, record.start, record.end - record.start, record.symbolVisibility(), record.symbolKind()};
    }
    void place(std::size_t index, RawSymbol const& symbol) {
        new (&m_records[index]) RangeRecord(MergeSide{symbol.name, symbol.address, symbol.address + symbol.size, false,
                                                      symbol.visibility, symbol.kind});
    }

    std::unique_ptr<Storage[]> m_records;
    std::size_t m_count = 0;
};

} // namespace ORV_3_30
