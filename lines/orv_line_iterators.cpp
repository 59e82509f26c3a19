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
    if (m_query.isAddress()) {
        m_atAddress.clear();
        for (RowAt const& at : m_table.rowsAt(m_query)) {
            m_atAddress.push_back(at.row);
        }
        return;
    }
    m_ordered = m_table.ordered();
    std::vector<SrcRange> const& ranges = m_ordered->ranges;
    m_range = m_query.start > m_query.end ? ranges.size() : 0;
    if (m_range == 0 && m_query.fileId != k_allFiles) {
        auto const key = std::pair(m_query.fileId, m_query.unit != k_allUnits ? m_query.unit : 0);
        auto const first = std::lower_bound(ranges.begin(), ranges.end(), key, [](SrcRange const& r, auto const& k) {
            return std::pair(r.fileId, r.unit) < k;
        });
        m_range = static_cast<std::size_t>(first - ranges.begin());
    }
    settle(0);
}

/// Goes to the first row that fits, in this range or one behind it.
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

/// Null at the end.
std::uint32_t const* SourceLineIterator::currentRow() const {
    if (m_query.isAddress()) {
        return m_position < m_atAddress.size() ? &m_atAddress[m_position] : nullptr;
    }
    return m_range < m_ordered->ranges.size() ? &m_ordered->ranges[m_range].rows[m_position] : nullptr;
}

bool SourceLineIterator::next() {
    if (currentRow() == nullptr) {
        return false;
    }
    if (m_query.isAddress()) {
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
