// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Iterators that show the line table as it is.
#pragma once

#include "lines/orv_linetable_impl.h"

namespace ORV_3_30 {

/// Whether rows come out as they are, or cut to what was asked for.
enum class RowBounds { Own, Cut };

/// The rows of a stretch, cut to it. Rows that are added meanwhile are not seen before reset.
class SourceLineIterator : public SymMgrObject<SourceLines> {
public:
    SourceLineIterator(LineTable& table, LineQuery const& query, RowBounds bounds = RowBounds::Cut);

    SymMgrObjectPtr<ISourceLine> current() override;
    bool next() override;
    void reset() override;

private:
    std::uint32_t const* currentRow() const;
    void collectUnits(SrcRange const* range);
    void settle(std::size_t position);

    LineTable& m_table;
    LineQuery m_query;
    RowBounds m_bounds;
    std::shared_ptr<LineTable::Ordered const> m_ordered; ///< For a stretch.
    bool m_isCollected = false; ///< A question for an address, or for several units of a file, has found all ahead.
    std::vector<std::uint32_t> m_found;
    std::size_t m_range = 0;    ///< In the table's ranges, where nothing is collected.
    std::size_t m_position = 0; ///< In the range, or in m_found.
};

/// The rows at an address, uncut.
class SourceLineByAddrIterator final : public SourceLineIterator {
public:
    SourceLineByAddrIterator(LineTable& table, LineQuery const& query)
        : SourceLineIterator(table, query, RowBounds::Own) {}
};

/// The locations of the lines of another iterator.
class SourceLineToLocIterator final : public SymMgrObject<IIterator<SymMgrObjectPtr<ISourceLocation>>> {
public:
    explicit SourceLineToLocIterator(SourceLines* lines) : m_lines(lines) {}

    SymMgrObjectPtr<ISourceLocation> current() override;
    bool next() override { return m_lines->next(); }
    void reset() override { m_lines->reset(); }

private:
    SymMgrObjectPtr<SourceLines> m_lines;
};

} // namespace ORV_3_30
