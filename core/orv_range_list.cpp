// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Ranges in a sorted array that merge as they come.
#include "core/orv_range_list.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

/// Index of the first range that starts above an address.
std::size_t indexAbove(std::vector<RangeList::Range> const& ranges, unsigned long long address) {
    auto const above = [](unsigned long long value, RangeList::Range const& range) { return value < range.start; };
    return static_cast<std::size_t>(std::upper_bound(ranges.begin(), ranges.end(), address, above) - ranges.begin());
}

} // namespace

void RangeList::absorb(Many& many, std::size_t index) {
    Range& range = many.ranges[index];
    std::size_t last = index + 1;
    while (last < many.ranges.size() && last != many.main && many.ranges[last].start <= range.end) {
        range.end = std::max(range.end, many.ranges[last].end);
        ++last;
    }
    std::size_t const count = last - index - 1;
    many.ranges.erase(many.ranges.begin() + static_cast<std::ptrdiff_t>(index) + 1,
                      many.ranges.begin() + static_cast<std::ptrdiff_t>(last));
    if (many.main > index && many.main < many.ranges.size() + count) {
        many.main -= count;
    }
}

void RangeList::add(unsigned long long start, unsigned long long end) {
    if (!m_many) {
        if (!m_hasOne) {
            m_one = {start, end};
            m_hasOne = true;
            return;
        }
        if (m_one.start <= start && m_one.end >= start) {
            m_one.end = std::max(m_one.end, end);
            return;
        }
        auto many = std::make_unique<Many>();
        many->ranges.reserve(4);
        many->ranges.push_back(m_one);
        m_many = std::move(many); // only now: what can fail is done
    }
    Many& many = *m_many;
    std::size_t const next = indexAbove(many.ranges, start);
    place(many, next, start, end);
    // What has grown stands round the place.
    std::vector<Range> const& ranges = many.ranges;
    for (std::size_t i = next > 1 ? next - 2 : 0; i + 1 < ranges.size() && i < next + 2; ++i) {
        if (ranges[i].end > ranges[i + 1].start) {
            many.longestOver = std::max(many.longestOver, ranges[i].end - ranges[i].start);
        }
    }
}

/// next: the first range that starts above start.
void RangeList::place(Many& many, std::size_t next, unsigned long long start, unsigned long long end) {
    std::vector<Range>& ranges = many.ranges;
    auto const insertAt = [&](std::size_t index) {
        if (ranges.size() == ranges.capacity()) {
            ranges.reserve(2 * ranges.size() + 1); // ahead of all else, as it may fail
        }
        if (many.main < ranges.size() && many.main >= index) {
            ++many.main;
        }
        ranges.insert(ranges.begin() + static_cast<std::ptrdiff_t>(index), Range{start, end});
    };
    if (next == 0) {
        bool const isMain = ranges.empty() || many.main >= ranges.size();
        insertAt(0);
        if (isMain) {
            many.main = 0;
        }
        return;
    }
    bool isPlaced = false;
    if (next < ranges.size() && next != many.main && end >= ranges[next].start) {
        ranges[next].start = start;
        ranges[next].end = std::max(ranges[next].end, end);
        absorb(many, next);
        isPlaced = true;
    }
    std::size_t const previous = next - 1;
    if (ranges[previous].end >= start) {
        ranges[previous].end = std::max(ranges[previous].end, end);
        absorb(many, previous);
        isPlaced = true;
    }
    if (!isPlaced) {
        insertAt(next);
    }
}

bool RangeList::remove(unsigned long long start) {
    if (!m_many) {
        bool const isThere = m_hasOne && m_one.start == start;
        m_hasOne = m_hasOne && !isThere;
        return isThere;
    }
    std::vector<Range>& ranges = m_many->ranges;
    auto const first = ranges.begin() + static_cast<std::ptrdiff_t>(start > 0 ? indexAbove(ranges, start - 1) : 0);
    if (first == ranges.end() || first->start != start) {
        return false;
    }
    auto const index = static_cast<std::size_t>(first - ranges.begin());
    if (m_many->main == index) {
        m_many->main = static_cast<std::size_t>(-1);
    } else if (m_many->main > index && m_many->main < ranges.size()) {
        --m_many->main;
    }
    ranges.erase(first);
    return true;
}

RangeList::Range const* RangeList::floor(unsigned long long address) const {
    if (!m_many) {
        return m_hasOne && m_one.start <= address ? &m_one : nullptr;
    }
    std::size_t const above = indexAbove(m_many->ranges, address);
    return above > 0 ? &m_many->ranges[above - 1] : nullptr;
}

std::size_t RangeList::firstFrom(unsigned long long address) const {
    if (!m_many) {
        return 0;
    }
    std::vector<Range> const& ranges = m_many->ranges;
    std::size_t const above = indexAbove(ranges, address);
    if (above == 0) {
        return 0;
    }
    // One that was added in front takes nothing in, and may reach over any number of those behind it.
    unsigned long long const start = ranges[above - 1].start;
    unsigned long long const reach = m_many->longestOver;
    std::size_t const over = address > reach ? indexAbove(ranges, address - reach - 1) : 0;
    return std::min(start != 0 ? indexAbove(ranges, start - 1) : 0, over);
}

} // namespace ORV_3_30
