// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Rows in chunks, each a distance from its run; the few wide values in a hash table.
#include "lines/orv_line_rows.h"

#include <algorithm>
#include <utility>

namespace ORV_3_30 {

/// What can fail comes first: a row that finds no memory leaves everything as it was.
bool LineRows::add(unsigned long long unit, SrcLocator const& row) {
    if (m_size == ~std::uint32_t{0} || row.end < row.start) {
        return false;
    }
    constexpr unsigned long long k_longestRun = 0xFFFFFFFF;
    bool follows = false;
    if (!m_runs.empty()) {
        Run const& last = m_runs.back();
        follows = last.end == row.start && row.start - last.base <= k_longestRun && last.unit == unit;
    }
    bool const isWide = row.column >= k_wide || row.discriminator > 0xFFFF;
    if (m_chunks.size() == m_size >> k_chunkBits) {
        // Not zeroed: pages that no row comes for cost nothing.
        std::unique_ptr<Packed[]> chunk(new Packed[k_chunkSize]);
        m_chunks.push_back(std::move(chunk));
    }
    if (isWide) {
        m_wide[m_size] = {row.column, row.discriminator};
    }
    if (!follows) {
        m_runs.push_back({row.start, row.end, unit, m_size, 0});
    }
    Run& run = m_runs.back();
    m_chunks[m_size >> k_chunkBits][m_size & (k_chunkSize - 1)] = {
        static_cast<std::uint32_t>(row.start - run.base), row.line, row.fileId,
        isWide ? k_wide : static_cast<std::uint16_t>(row.column), static_cast<std::uint16_t>(row.discriminator)};
    run.end = row.end;
    ++run.count;
    ++m_size;
    return true;
}

void LineRows::cutTo(std::uint32_t size) {
    while (!m_runs.empty() && m_runs.back().firstRow >= size) {
        m_runs.pop_back();
    }
    if (!m_runs.empty() && m_runs.back().firstRow + m_runs.back().count > size) {
        m_runs.back().end = m_runs.back().base + packed(size).offset;
        m_runs.back().count = size - m_runs.back().firstRow;
    }
    m_size = size;
}

LineRows::Run const& LineRows::runOf(std::uint32_t row) const {
    auto const after = std::upper_bound(m_runs.begin(), m_runs.end(), row,
                                        [](std::uint32_t r, Run const& run) { return r < run.firstRow; });
    return *std::prev(after);
}

SrcLocator LineRows::locator(Run const& run, std::uint32_t row) const {
    Packed const& own = packed(row);
    bool const isLast = row + 1 == run.firstRow + run.count;
    SrcLocator result{run.base + own.offset,
                      isLast ? run.end : run.base + packed(row + 1).offset,
                      own.discriminator,
                      own.line,
                      own.column,
                      own.fileId};
    if (own.column == k_wide) {
        Wide const& wide = m_wide.at(row);
        result.column = wide.column;
        result.discriminator = wide.discriminator;
    }
    return result;
}

std::uint32_t LineRows::rowAt(Run const& run, unsigned long long address) const {
    unsigned long long const distance = address - run.base;
    std::uint32_t from = run.firstRow;
    std::uint32_t count = run.count;
    // The last row at or below the address: rows of no size in front of it don't hold it.
    while (count > 1) {
        std::uint32_t const half = count / 2;
        if (packed(from + half).offset <= distance) {
            from += half;
            count -= half;
        } else {
            count = half;
        }
    }
    return from;
}

} // namespace ORV_3_30
