// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Finds what reaches beyond an address among things that are sorted by their start.
///
///     EndIndex index;
///     index.build(count, [&](std::size_t i) { return things[i].end; });
///     for (i = index.nextAbove(0, x, endOf); i < count; i = index.nextAbove(i + 1, x, endOf)) ...
///
/// Things that overlap in any way: a binary search over the starts tells where to stop, and this where
/// there is nothing to find. It holds one number for every 32 things, and one for every 32 of those.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace ORV_3_30 {

class EndIndex {
public:
    template <typename EndOf> void build(std::size_t count, EndOf endOf) {
        m_count = count;
        m_levels.clear();
        if (count <= k_fanOut) {
            return;
        }
        m_levels.push_back(greatestEnds(count, endOf));
        while (m_levels.back().size() > k_fanOut) {
            std::vector<unsigned long long> const& finer = m_levels.back();
            m_levels.push_back(greatestEnds(finer.size(), [&](std::size_t i) { return finer[i]; }));
        }
    }

    /// The first of the things at or behind from that ends above x; the count if there is none.
    template <typename EndOf> std::size_t nextAbove(std::size_t from, unsigned long long x, EndOf endOf) const {
        std::size_t at = from;
        while (at < m_count) {
            if (at % k_fanOut == 0) {
                std::size_t const skipped = skip(at, x);
                if (skipped != at) {
                    at = skipped;
                    continue;
                }
            }
            if (endOf(at) > x) {
                return at;
            }
            ++at;
        }
        return m_count;
    }

private:
    static constexpr std::size_t k_fanOut = 32;

    /// Of each so many.
    template <typename EndOf> static std::vector<unsigned long long> greatestEnds(std::size_t count, EndOf endOf) {
        std::vector<unsigned long long> level((count + k_fanOut - 1) / k_fanOut, 0);
        for (std::size_t i = 0; i < count; ++i) {
            level[i / k_fanOut] = std::max<unsigned long long>(level[i / k_fanOut], endOf(i));
        }
        return level;
    }
    /// From a place where a block begins, the place behind the largest block that is no use.
    std::size_t skip(std::size_t at, unsigned long long x) const {
        std::size_t width = 1;
        std::size_t best = at;
        for (auto const& level : m_levels) {
            width *= k_fanOut;
            if (at % width != 0 || level[at / width] > x) {
                break;
            }
            best = at + width;
        }
        return best;
    }

    std::size_t m_count = 0;
    std::vector<std::vector<unsigned long long>> m_levels; ///< The finest first.
};

} // namespace ORV_3_30
