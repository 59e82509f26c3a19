// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// One range in a symbol table.
#pragma once

#include "symbols/orv_merge.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>

namespace ORV_3_30 {

class Scope;

/// A symbol as a format's own symbol table has it. The name stays where it is for as long as the
/// loader lives.
struct RawSymbol {
    char const* name;
    unsigned long long address;
    unsigned long long size;
    symbol_visibility_t visibility;
    symbol_kind_t kind;
};

/// Lives as long as the table. Half open, in pseudo addresses; start equal to end is a label.
///
/// The ranges of symbols come by the tens of thousands, and few are ever asked for: their scope is made
/// when somebody needs it. Until then the record alone stands for the symbol. A scope that was made is
/// never changed: if a merge changes the symbol, the next one who needs it gets another scope.
struct RangeRecord {
    unsigned long long start;
    std::atomic<unsigned long long> end; ///< A merge may move it while others read.
    RangeRecord* next;                   ///< The next record with the same start, by end, the greatest first.
    std::atomic<Scope*> scope;           ///< The table holds a reference on it. Null: not made yet.
    std::atomic<char const*> name;       ///< Null unless the record alone says what stands here.
    std::uint64_t token;                 ///< The maker's own.
    std::uint32_t order;                 ///< Arrival: of equal ends, the one that came first stands in front.
    std::uint8_t maker;                  ///< Number of who makes the scope.
    std::atomic<std::uint8_t> kind;
    std::atomic<std::uint8_t> visibility;

    bool isPoint() const { return start == end; }
    /// True while the record alone says what stands here, with or without a scope.
    bool isDeferred() const { return name != nullptr; }
    MergeSide side() const {
        return {name,
                start,
                end,
                false,
                static_cast<symbol_visibility_t>(visibility.load()),
                static_cast<symbol_kind_t>(kind.load())};
    }
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
        return {record.name, record.start, record.end - record.start,
                static_cast<symbol_visibility_t>(record.visibility.load()),
                static_cast<symbol_kind_t>(record.kind.load())};
    }
    void place(std::size_t index, RawSymbol const& symbol) {
        new (&m_records[index]) RangeRecord{symbol.address,
                                            symbol.address + symbol.size,
                                            nullptr,
                                            nullptr,
                                            symbol.name,
                                            0,
                                            0,
                                            0,
                                            static_cast<std::uint8_t>(symbol.kind),
                                            static_cast<std::uint8_t>(symbol.visibility)};
    }

    std::unique_ptr<Storage[]> m_records;
    std::size_t m_count = 0;
};

} // namespace ORV_3_30
