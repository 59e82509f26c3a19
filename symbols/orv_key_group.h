// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What starts at one key of a symbol table, where that is much.
///
/// Linkers leave the debug information of code that they drop at address 0, by the tens of thousands. What
/// comes in there is compared with those that it may merge with, and not with all.
#pragma once

#include "symbols/orv_range_record.h"
#include "symbols/orv_scope_maker.h"

#include <cstddef>
#include <set>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

/// An index beside a key's list. No lock: the table guards it. An operation that finds no memory leaves it useless;
/// the table makes another one.
class KeyGroup {
public:
    /// From so many records on it pays.
    static constexpr std::size_t k_least = 16;

    /// side: null name for a scope without a symbol.
    void enter(RangeRecord* record, MergeSide const& side, IScopeMaker& maker);
    /// Ahead of any change to what a record says of itself.
    void leave(RangeRecord* record);
    /// The record that stands in front of one that was entered, in list order; null for the first.
    RangeRecord* previous(RangeRecord* record) const;
    /// The record of a scope that came as one; null if it has none here.
    RangeRecord* ofScope(Scope const* scope) const {
        auto const known = m_ofScope.find(scope);
        return known != m_ofScope.end() ? known->second : nullptr;
    }
    RangeRecord* last() const { return m_all.empty() ? nullptr : *m_all.rbegin(); }

    /// The first record in list order about which decide says anything but merge_Different; null if there is none.
    template <typename Decide> RangeRecord* findRival(MergeSide const& newcomer, Decide decide, unsigned int& flags) {
        RangeRecord* best = nullptr;
        for (IScopeMaker* const maker : m_makers) {
            MatchKeys keys;
            maker->matchKeys(newcomer, MatchRole::Newcomer, keys);
            for (std::uint64_t const key : keys) {
                auto const alike = m_byKey.find(key);
                RangeRecord* const found =
                    alike != m_byKey.end() ? firstOf(alike->second, best, decide, flags) : nullptr;
                best = found != nullptr ? found : best;
            }
        }
        return best;
    }

private:
    using Ordered = std::set<RangeRecord*, InListOrder>;

    template <typename Decide>
    static RangeRecord* firstOf(Ordered const& records, RangeRecord const* best, Decide decide, unsigned int& flags) {
        for (RangeRecord* const record : records) {
            if (best != nullptr && !InListOrder()(record, best)) {
                break;
            }
            unsigned int const found = decide(*record);
            if (found != merge_Different) {
                flags = found;
                return record;
            }
        }
        return nullptr;
    }

    Ordered m_all;
    std::unordered_map<std::uint64_t, Ordered> m_byKey;
    std::unordered_map<RangeRecord const*, MatchKeys> m_keysOf; ///< As they were entered.
    std::unordered_map<Scope const*, RangeRecord*> m_ofScope;
    std::vector<IScopeMaker*> m_makers; ///< Of those that were entered.
};

} // namespace ORV_3_30
