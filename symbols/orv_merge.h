// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What becomes of two things that start at one address.
#pragma once

#include "core/orv_budget.h"
#include "orv/orv_symbol.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace ORV_3_30 {

/// What is decided about a newcomer that starts where something else does; a mask.
enum merge_flags_t : unsigned int {
    merge_Different = 0,
    merge_Same = 1,           ///< The newcomer is the same thing, and goes.
    merge_ReplaceEnd = 2,     ///< The rival takes the newcomer's ranges.
    merge_ReplaceScope = 4,   ///< The rival's other ranges go, the one that is left takes the newcomer's end.
    merge_TakeName = 8,       ///< The rival's symbol takes the newcomer's name.
    merge_TakeSymbolData = 16 ///< It takes the newcomer's visibility and kind.
};

/// One side of the decision. Both go by nothing else, so that a symbol whose scope has not been made
/// can be a side too.
struct MergeSide {
    char const* name; ///< Null for a scope without a symbol, which is like nothing else.
    unsigned long long firstStart;
    unsigned long long lastEnd;
    bool hasSeveralRanges;
    symbol_visibility_t visibility;
    symbol_kind_t kind;

    bool isPoint() const { return firstStart == lastEnd; }
};

/// What the table knows of the boundary behind the place of a decision.
struct MergeNext {
    unsigned long long key = ~0ULL; ///< All ones if there is none.
    char const* name = nullptr;     ///< Of what starts there last; null if nothing does.
};

/// Numbers by which those that may merge find each other where much starts.
class MatchKeys {
public:
    void add(std::uint64_t key) { m_keys[m_count++] = key; }
    std::uint64_t const* begin() const { return m_keys.data(); }
    std::uint64_t const* end() const { return m_keys.data() + m_count; }

private:
    std::array<std::uint64_t, 4> m_keys{};
    std::size_t m_count = 0;
};

/// As what a symbol is looked for, or found.
enum class MatchRole { Rival, Newcomer };

/// The comparison of names from a file, with a bound on what it costs: thousands of symbols may share megabytes. Past
/// the bound, long names count as different.
class NameBudget {
public:
    /// bytes: what may be looked at beyond the usual size of a name.
    void refill(std::size_t bytes) { m_budget.refill(bytes); }
    bool areSame(char const* a, char const* b);
    /// Equal for equal names, and hardly ever else.
    std::uint64_t hashOf(char const* name);
    /// True for a name that costs nothing.
    static bool isUsual(char const* name);

private:
    Budget m_budget{nullptr, std::uint64_t{1} << 28};
};

} // namespace ORV_3_30
