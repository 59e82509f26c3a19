// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The rows of a stretch, file by file and unit by unit, by binary search and a tree of greatest ends.
#include "lines/orv_line_iterators.h"

#include "lines/orv_sourceline_impl.h"

#include <algorithm>
#include <utility>

namespace ORV_3_30 {

SourceLineIterator::SourceLineIterator(LineTable& table, LineQuery const& query, RowBounds bounds)
    : m_table(table), m_query(query), m_bounds(bounds) {
    SourceLineIterator::reset();
}

void SourceLineIterator::reset() {
    m_position = 0;
    m_found.clear();
    m_isCollected = m_query.isAddress();
    if (m_query.isAddress()) {
        for (RowAt const& at : m_table.rowsAt(m_query)) {
            m_found.push_back(at.row);
        }
        return;
    }
    m_ordered = m_table.ordered();
    std::vector<SrcRange> const& ranges = m_ordered->ranges;
    m_range = m_query.start > m_query.end ? ranges.size() : 0;
    if (m_range == 0 && m_query.fileId != k_allFiles) {
        bool const isWhole = m_query.start == 0 && m_query.end == ~0ULL; // all rows come, unit by unit as they stand
        SrcRange const* const range =
            isWhole ? LineTable::firstRangeOf(*m_ordered, m_query) : m_table.rangeOf(*m_ordered, m_query);
        m_isCollected = range == nullptr || range->unit == k_allUnits;
        if (m_isCollected) {
            collectUnits(range);
            return;
        }
        m_range = static_cast<std::size_t>(range - ranges.data());
    }
    settle(0);
}

/// Unit by unit, as they come out; nothing of no range.
void SourceLineIterator::collectUnits(SrcRange const* range) {
    std::vector<std::tuple<unsigned long long, std::uint32_t, std::uint32_t>> placed; // unit, position and row
    for (std::uint32_t const row : range != nullptr ? m_table.rowsIn(*range, m_query) : std::vector<std::uint32_t>()) {
        placed.emplace_back(m_table.unitOf(row), m_ordered->positions[row], row);
    }
    std::sort(placed.begin(), placed.end());
    for (auto const& [unit, position, row] : placed) {
        m_found.push_back(row);
    }
}

/// Goes to the first row that fits, in this range or one behind it.
void SourceLineIterator::settle(std::size_t position) {
    std::vector<SrcRange> const& ranges = m_ordered->ranges;
    bool const isForFile = m_query.fileId != k_allFiles;
    for (; m_range < ranges.size(); ++m_range, position = 0) {
        SrcRange const& range = ranges[m_range];
        if (isForFile && range.fileId != m_query.fileId) {
            break;
        }
        if (m_query.unit != k_allUnits && range.unit != m_query.unit) {
            continue;
        }
        m_position = range.ends.nextAbove(position, m_query.start,
                                          [&](std::size_t i) { return m_table.locator(range.rows[i]).end; });
        if (m_position < range.rows.size() && m_table.locator(range.rows[m_position]).start < m_query.limit()) {
            return;
        }
        if (isForFile && m_query.unit != k_allUnits) {
            break; // there is no other
        }
    }
    m_range = ranges.size();
}

/// Null at the end.
std::uint32_t const* SourceLineIterator::currentRow() const {
    if (m_isCollected) {
        return m_position < m_found.size() ? &m_found[m_position] : nullptr;
    }
    return m_range < m_ordered->ranges.size() ? &m_ordered->ranges[m_range].rows[m_position] : nullptr;
}

bool SourceLineIterator::next() {
    if (currentRow() == nullptr) {
        return false;
    }
    if (m_isCollected) {
        ++m_position;
    } else {
        settle(m_position + 1);
    }
    return currentRow() != nullptr;
}

SymMgrObjectPtr<ISourceLine> SourceLineIterator::current() {
    std::uint32_t const* const at = currentRow();
    if (at == nullptr) {
        return {};
    }
    SrcLocator const row = m_table.locator(*at);
    bool const isCut = m_bounds == RowBounds::Cut;
    SymMgrObjectPtr<ISourceLocation> const location(new SourceLocation(
        m_table.resolver(), {m_table.unitOf(*at), row.fileId, row.line, row.column, row.discriminator}));
    return SymMgrObjectPtr<ISourceLine>(new SourceLine(m_table.loader(), location.get(),
                                                       isCut ? std::max(row.start, m_query.start) : row.start,
                                                       isCut ? std::min(row.end, m_query.limit()) : row.end));
}

SymMgrObjectPtr<ISourceLocation> SourceLineToLocIterator::current() {
    SymMgrObjectPtr<ISourceLine> const line = m_lines->current();
    return line ? SymMgrObjectPtr<ISourceLocation>(line->location()) : SymMgrObjectPtr<ISourceLocation>();
}

} // namespace ORV_3_30
