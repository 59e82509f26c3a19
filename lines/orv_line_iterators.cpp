// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The rows of a stretch, file by file and unit by unit, by binary search and a tree of greatest ends.
#include "lines/orv_line_iterators.h"

#include "lines/orv_source.h"

#include <algorithm>
#include <utility>

namespace ORV_3_30 {

SourceLineIterator::SourceLineIterator(LineTable& table, LineQuery const& query) : m_table(table), m_query(query) {
    SourceLineIterator::reset();
}

void SourceLineIterator::reset() {
    m_position = 0;
    if (m_query.isAddress()) {
        m_table.rowsAt(m_query, m_atAddress);
        return;
    }
    m_ordered = m_table.ordered();
    std::vector<SrcRange> const& ranges = m_ordered->ranges;
    if (m_query.start > m_query.end) {
        m_range = ranges.size();
        return;
    }
    if (m_query.fileId == k_allFiles) {
        enterRange(0);
        return;
    }
    auto const key = std::pair(m_query.fileId, m_query.unit != k_allUnits ? m_query.unit : 0);
    auto const first = std::lower_bound(ranges.begin(), ranges.end(), key, [](SrcRange const& r, auto const& k) {
        return std::pair(r.fileId, r.unit) < k;
    });
    enterRange(static_cast<std::size_t>(first - ranges.begin()));
}

/// Goes to the first row that fits, in this range or one behind it.
void SourceLineIterator::enterRange(std::size_t range) {
    m_range = range;
    settle(0);
}

void SourceLineIterator::settle(std::size_t position) {
    std::vector<SrcRange> const& ranges = m_ordered->ranges;
    for (; m_range < ranges.size(); ++m_range, position = 0) {
        SrcRange const& range = ranges[m_range];
        bool const isOtherUnit = m_query.unit != k_allUnits && range.unit != m_query.unit;
        if (m_query.fileId != k_allFiles && (range.fileId != m_query.fileId || isOtherUnit)) {
            m_range = ranges.size();
            return;
        }
        if (isOtherUnit) {
            continue;
        }
        m_position = range.ends.nextAbove(position, m_query.start,
                                          [&](std::size_t i) { return m_table.locator(range.rows[i]).end; });
        if (m_position < range.rows.size() && m_table.locator(range.rows[m_position]).start < m_query.limit()) {
            return;
        }
    }
}

bool SourceLineIterator::next() {
    if (m_query.isAddress()) {
        m_position += m_position < m_atAddress.size() ? 1 : 0;
        return m_position < m_atAddress.size();
    }
    if (m_range < m_ordered->ranges.size()) {
        settle(m_position + 1);
    }
    return m_range < m_ordered->ranges.size();
}

SymMgrObjectPtr<ISourceLine> SourceLineIterator::current() {
    std::uint32_t row = 0;
    if (m_query.isAddress()) {
        if (m_position >= m_atAddress.size()) {
            return {};
        }
        row = m_atAddress[m_position];
    } else {
        std::vector<SrcRange> const& ranges = m_ordered->ranges;
        if (m_range >= ranges.size() || m_position >= ranges[m_range].rows.size()) {
            return {};
        }
        row = ranges[m_range].rows[m_position];
    }
    return makeLine(m_table.locator(row), m_table.unitOf(row));
}

SymMgrObjectPtr<ISourceLine> SourceLineIterator::makeLine(SrcLocator const& row, unsigned long long unit) {
    return lineBetween(row, unit, std::max(row.start, m_query.start), std::min(row.end, m_query.limit()));
}

SymMgrObjectPtr<ISourceLine> SourceLineIterator::lineBetween(SrcLocator const& row, unsigned long long unit,
                                                             unsigned long long start, unsigned long long end) {
    SymMgrObjectPtr<ISourceLocation> const location(
        new SourceLocation(m_table.resolver(), {unit, row.fileId, row.line, row.column, row.discriminator}));
    return SymMgrObjectPtr<ISourceLine>(new SourceLine(m_table.loader(), location.get(), start, end));
}

SymMgrObjectPtr<ISourceLine> SourceLineByAddrIterator::makeLine(SrcLocator const& row, unsigned long long unit) {
    return lineBetween(row, unit, row.start, row.end);
}

SymMgrObjectPtr<ISourceLocation> SourceLineToLocIterator::current() {
    SymMgrObjectPtr<ISourceLine> const line = m_lines->current();
    return line ? SymMgrObjectPtr<ISourceLocation>(line->location()) : SymMgrObjectPtr<ISourceLocation>();
}

} // namespace ORV_3_30
