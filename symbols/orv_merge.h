// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What becomes of two things that start at one address.
#pragma once

#include "orv/orv_symbol.h"

namespace ORV_3_30 {

/// What a scope decides about a newcomer that starts where it does; a mask.
enum merge_flags_t : unsigned int {
    merge_Different = 0,
    merge_Same = 1,           ///< The newcomer is the same thing, and goes.
    merge_ReplaceEnd = 2,     ///< This scope takes the newcomer's ranges.
    merge_ReplaceScope = 4,   ///< This scope's other ranges go, the one that is left takes the newcomer's end.
    merge_TakeName = 8,       ///< This scope's symbol takes the newcomer's name.
    merge_TakeSymbolData = 16 ///< It takes the newcomer's visibility and kind.
};

/// One side of the decision. Both go by nothing else, so that a symbol whose scope has not been made
/// can be a side too.
struct MergeSide {
    char const* name;
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

/// The rule of symbols without debug information: the same name and the same end make the same thing. A
/// label at the start of something of its name is that thing, wherever it ends.
unsigned int plainMergeRule(MergeSide const& mine, MergeSide const& other);

} // namespace ORV_3_30
