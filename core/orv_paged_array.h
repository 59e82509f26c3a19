// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// An array of small values by a number that is dense as a rule.
///
///     PagedArray<Entry*> byCode;
///     byCode.store(1, entry);
///     Entry* found = byCode.find(1);      // null where nothing was stored
///
/// Numbers that come in order stand in pages; those far beyond what has come stand apart, so that no
/// number in a file makes the array larger than what is in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

template <typename T> class PagedArray {
public:
    T find(std::uint64_t index) const {
        if (index < m_pages.size() && m_pages[index] != T()) {
            return m_pages[index];
        }
        auto const found = m_far.empty() ? m_far.end() : m_far.find(index);
        return found != m_far.end() ? found->second : T();
    }
    void store(std::uint64_t index, T value) {
        ++m_count;
        if (index >= m_pages.size() && index <= k_pageSize / 8 + 2 * m_count) {
            m_pages.resize(index + 1);
        }
        if (index < m_pages.size()) {
            m_pages[index] = value;
        } else {
            m_far[index] = value;
        }
    }

private:
    static constexpr std::size_t k_pageSize = 256;

    std::vector<T> m_pages;
    std::unordered_map<std::uint64_t, T> m_far;
    std::size_t m_count = 0;
};

} // namespace ORV_3_30
