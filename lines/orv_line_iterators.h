// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Iterators that show the line table as it is.
#pragma once

#include "lines/orv_linetable.h"

namespace ORV_3_30 {

/// The rows of a stretch, cut to it. Rows that are added meanwhile are not seen before reset.
class SourceLineIterator : public SymMgrObject<SourceLines> {
public:
    SourceLineIterator(LineTable& table, LineQuery const& query);

    SymMgrObjectPtr<ISourceLine> current() override;
    bool next() override;
    void reset() override;

protected:
    /// What current gives for a row.
    virtual SymMgrObjectPtr<ISourceLine> makeLine(SrcLocator const& row, unsigned long long unit);
    SymMgrObjectPtr<ISourceLine> lineBetween(SrcLocator const& row, unsigned long long unit, unsigned long long start,
                                             unsigned long long end);

private:
    void enterRange(std::size_t range);
    void settle(std::size_t position);

    LineTable& m_table;
    LineQuery m_query;
    std::shared_ptr<LineTable::Ordered const> m_ordered; ///< For a stretch.
    std::vector<std::uint32_t> m_atAddress;              ///< What a question for an address has found.
    std::size_t m_range = 0;                             ///< In the table's ranges, for a stretch.
    std::size_t m_position = 0;                          ///< In the range, or in m_atAddress.
};

/// The rows at an address, uncut.
class SourceLineByAddrIterator final : public SourceLineIterator {
public:
    using SourceLineIterator::SourceLineIterator;

protected:
    SymMgrObjectPtr<ISourceLine> makeLine(SrcLocator const& row, unsigned long long unit) override;
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
