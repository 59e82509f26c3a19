/// One range in a symbol table.
#pragma once

#include "orv/orv_symbol.h"

#include <atomic>
#include <cstdint>

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
/// The ranges of raw symbols come by the tens of thousands, and few are ever asked for: their scope
/// is made when somebody needs it. Until then the record alone stands for the symbol.
struct RangeRecord {
    unsigned long long start;
    std::atomic<unsigned long long> end; ///< A merge may move it while others read.
    RangeRecord* next;                   ///< The next record with the same start, by end, the greatest first.
    std::atomic<Scope*> scope;           ///< The table holds a reference on it. Null: not made yet.
    char const* rawName;                 ///< Null unless a raw symbol stands here.
    std::uint32_t order;                 ///< Arrival: of equal ends, the one that came first stands in front.
    std::uint8_t rawKind;
    std::uint8_t rawVisibility;

    bool isPoint() const { return start == end; }
    /// True while a raw symbol stands here that nobody has needed a scope for.
    bool isRaw() const { return scope.load(std::memory_order_acquire) == nullptr; }
};

} // namespace ORV_3_30
