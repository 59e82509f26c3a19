// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Which of many intervals holds an address, where a later one covers those before it.
///
///     IntervalIndex<std::uint32_t> index;
///     index.paint(0x1000, 0x1040, 1);
///     index.paint(0x1010, 0x1020, 2);
///     index.find(0x1018);                // 2
///     index.find(0x1030);                // 1
#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <vector>

namespace ORV_3_30 {

/// Half open. Painted in a balanced tree of borders, O(log n) each on the average, and asked in a flat sorted array. No
/// lock: painted by one, asked by any number.
template <typename Value> class IntervalIndex {
public:
    struct Run {
        unsigned long long start;
        unsigned long long end;
        Value value;
    };

    void paint(unsigned long long start, unsigned long long end, Value value) {
        if (start >= end) {
            return;
        }
        // What begins before goes on behind; what begins inside is covered.
        split(start);
        split(end);
        m_borders.erase(m_borders.lower_bound(start), m_borders.lower_bound(end));
        m_borders.emplace(start, End{end, value});
    }

    /// To be called once all is painted.
    void finish() {
        m_runs.clear();
        m_runs.reserve(m_borders.size());
        for (auto const& [start, run] : m_borders) {
            m_runs.push_back({start, run.end, run.value});
        }
        m_borders.clear();
    }

    /// Null where nothing was painted.
    Run const* find(unsigned long long address) const {
        auto const behind = std::upper_bound(m_runs.begin(), m_runs.end(), address,
                                             [](unsigned long long a, Run const& run) { return a < run.start; });
        return behind != m_runs.begin() && address < std::prev(behind)->end ? &*std::prev(behind) : nullptr;
    }

private:
    struct End {
        unsigned long long end;
        Value value;
    };

    /// Cuts what holds an address in two there.
    void split(unsigned long long address) {
        auto const behind = m_borders.lower_bound(address);
        if (behind != m_borders.begin() && std::prev(behind)->second.end > address) {
            m_borders.emplace_hint(behind, address, std::prev(behind)->second);
            std::prev(behind, 2)->second.end = address;
        }
    }

    std::map<unsigned long long, End> m_borders; ///< By start. Disjoint.
    std::vector<Run> m_runs;
};

} // namespace ORV_3_30
