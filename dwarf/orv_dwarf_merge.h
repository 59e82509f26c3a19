// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// How a symbol of debug information takes in others that start where it does.
#pragma once

#include "symbols/orv_merge.h"

#include <mutex>
#include <string>
#include <unordered_map>

namespace ORV_3_30 {

/// Short forms of names that were made before: inlined functions come again and again. The lock is for
/// those who hold on to what of gives.
class ShortNames {
public:
    std::mutex& lock() { return m_lock; }
    /// Stays until makeRoom.
    char const* of(char const* name);
    /// Forgets what there is if it has become too much.
    void makeRoom();

private:
    std::mutex m_lock;
    std::unordered_map<std::string, std::string> m_made; ///< By the name.
    std::size_t m_bytes = 0;
};

unsigned int dwarfMergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next,
                            ShortNames& shortNames);

/// Numbers by which those find each other whose starts and names the rule takes for the same.
void dwarfMatchKeys(MergeSide const& side, MatchRole role, ShortNames& shortNames, MatchKeys& out);

} // namespace ORV_3_30
