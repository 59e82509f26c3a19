// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Lines as the function that was asked about sees them.
///
/// Code that was inlined into a function carries the lines of the inlined source, while a question
/// about the function and its own file is to see the place of the call. These iterators join the rows of
/// the line table with what the symbols know.
#pragma once

#include "lines/orv_linetable_impl.h"
#include "orv/orv_symbolrange.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_symbolrange.h"

namespace ORV_3_30 {

/// What a walk over an InlineCallerSourceLineIterator for one address, without a filter for the file, comes
/// to when the line that starts last is taken, of several such the first. False if there is none.
bool latestCallerLine(LineTable const& table, unsigned long long address, unsigned long long unit, Scope* scope,
                      SrcLocator& row, unsigned long long& rowUnit);

/// The lines of one file inside a symbol's ranges.
class SymbolSourceLineIterator final : public SymMgrObject<SourceLines> {
public:
    /// Restricted to [start, end); start equal to end asks for one address.
    SymbolSourceLineIterator(Scope& scope, ILineTable& table, LineQuery const& query);

    SymMgrObjectPtr<ISourceLine> current() override;
    bool next() override;
    void reset() override;

private:
    bool enterRange(std::size_t range);

    Scope& m_scope;
    ILineTable& m_table;
    LineQuery m_query;
    std::size_t m_range = 0;
    SymMgrObjectPtr<SourceLines> m_lines; ///< Of the present range; null at the end.
};

/// One line: the call site of an inlined body, over a range of it.
class RangeCallerSourceLineIterator final : public SymMgrObject<SourceLines> {
public:
    RangeCallerSourceLineIterator(IFileFormatLoader* loader, ISymbolRange* range, ISourceLocation* callSite);

    SymMgrObjectPtr<ISourceLine> current() override;
    bool next() override {
        m_hasElement = false;
        return false;
    }
    void reset() override { m_hasElement = true; }

private:
    IFileFormatLoader* m_loader; ///< Not counted.
    SymMgrObjectPtr<ISymbolRange> m_range;
    SymMgrObjectPtr<ISourceLocation> m_callSite;
    bool m_hasElement = true;
};

/// Walks the function ranges of a scope side by side with the table. Between useful ranges the table's
/// rows stand; in a range that is an inlined body the call site stands for them if it is in the file that
/// was asked for; in any other the symbol's own lines do, or the table's.
class InlineCallerSourceLineIterator final : public SymMgrObject<SourceLines> {
public:
    /// Without a scope there are no ranges, and the table's rows come out as they are.
    InlineCallerSourceLineIterator(ILineTable& table, LineQuery const& query, Scope* scope);

    SymMgrObjectPtr<ISourceLine> current() override;
    bool next() override;
    void reset() override;

private:
    bool isAddressQuestion() const { return m_query.start == m_query.end; }
    void findRanges(Scope& scope);
    bool isUseful(ISymbolRange& range) const;
    /// From where the ranges stand.
    void takeUsefulRange();
    unsigned long long startOfRange() const;
    unsigned long long endOfRange() const;
    /// True if lines came of it.
    bool stepIntoRange();
    bool stepIntoInline(IInlineInstance& instance);
    bool askTable(unsigned long long from, unsigned long long to);
    bool leaveRange();
    bool fitsFilter(SourceLines& lines) const;

    SymMgrObjectPtr<ILineTable> m_table;
    LineQuery m_query;
    IFileFormatLoader* m_loader;
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> m_ranges; ///< Null where there are none.
    SymMgrObjectPtr<ISymbolRange> m_range;                              ///< The useful one ahead or underfoot.
    bool m_isRangeUsed = false;
    bool m_areAllUseful = false;                ///< m_ranges gives no others.
    SymMgrObjectPtr<SourceLines> m_lines;       ///< The table's.
    SymMgrObjectPtr<SourceLines> m_callerLines; ///< The symbol's or the call site's.
};

} // namespace ORV_3_30
