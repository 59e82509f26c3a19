// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Two ordered walks side by side: the ranges of a scope's functions, and the rows of the line table.
#include "lines/orv_caller_lines.h"

#include "core/orv_trace.h"
#include "lines/orv_sourceline_impl.h"
#include "orv/orv_fileformatloader.h"
#include "symbols/orv_function_pieces.h"
#include "symbols/orv_symbolrange.h"

#include <algorithm>
#include <optional>

namespace ORV_3_30 {

bool latestCallerLine(LineTable const& table, unsigned long long address, unsigned long long unit, Scope* scope,
                      SrcLocator& row, unsigned long long& rowUnit) {
    LineQuery const query{unit, k_allFiles, address, address};
    std::vector<Scope*> scopes;
    if (scope != nullptr) {
        scope->scopesAt(address, symbol_kind_Function, scopes);
    }
    std::optional<RowAt> best;
    if (scopes.empty()) {
        best = table.latestAt(query);
    } else {
        RowsAtAddress const rows(table, address);
        std::optional<std::optional<RowAt>> inTable; // the same for all of them
        for (Scope* const at : scopes) {
            if (at->inlineInstance() != nullptr) {
                continue; // its call site stands for a file that was asked for, and none was
            }
            Symbol* const symbol = at->symbolImpl();
            RowAt const* const own = symbol != nullptr ? symbol->latestLineAt(rows) : nullptr;
            if (own == nullptr && !inTable) {
                inTable = table.latestAt(query);
            }
            std::optional<RowAt> const candidate = own != nullptr ? std::optional(*own) : *inTable;
            if (candidate && (!best || candidate->start > best->start)) {
                best = candidate;
            }
        }
    }
    if (best) {
        row = table.locator(best->row);
        rowUnit = best->unit;
    }
    return best.has_value();
}

// --- SymbolSourceLineIterator

SymbolSourceLineIterator::SymbolSourceLineIterator(Scope& scope, ILineTable& table, LineQuery const& query)
    : m_scope(scope), m_table(table), m_query(query) {
    reset();
}

void SymbolSourceLineIterator::reset() {
    m_lines = nullptr;
    enterRange(m_scope.ranges().firstFrom(m_query.start));
}

/// Goes to the first line in this range of the symbol or one behind it.
bool SymbolSourceLineIterator::enterRange(std::size_t range) {
    RangeList const& ranges = m_scope.ranges();
    for (m_range = range; m_range < ranges.size() && ranges[m_range].start < m_query.limit(); ++m_range) {
        RangeList::Range const& own = ranges[m_range];
        unsigned long long const start = std::max(own.start, m_query.start);
        unsigned long long const end = std::min(own.end, m_query.end);
        bool const isPointInside = own.start <= m_query.start && m_query.start < own.end;
        bool const isLabelInside = own.start == own.end && m_query.start <= own.start && own.start < m_query.limit();
        if (start < end || (m_query.isAddress() && isPointInside) || isLabelInside) {
            m_table.sourceLines(m_lines, m_query.unit, m_query.fileId, start, end);
            if (m_lines->current()) {
                return true;
            }
        }
    }
    m_lines = nullptr;
    return false;
}

SymMgrObjectPtr<ISourceLine> SymbolSourceLineIterator::current() {
    return m_lines ? m_lines->current() : SymMgrObjectPtr<ISourceLine>();
}

bool SymbolSourceLineIterator::next() {
    if (!m_lines) {
        return false;
    }
    return m_lines->next() || enterRange(m_range + 1);
}

// --- RangeCallerSourceLineIterator

RangeCallerSourceLineIterator::RangeCallerSourceLineIterator(IFileFormatLoader* loader, ISymbolRange* range,
                                                             ISourceLocation* callSite)
    : m_loader(loader), m_range(range), m_callSite(callSite) {}

SymMgrObjectPtr<ISourceLine> RangeCallerSourceLineIterator::current() {
    if (!m_hasElement) {
        return {};
    }
    auto const& range = static_cast<SymbolRange&>(*m_range);
    return SymMgrObjectPtr<ISourceLine>(new SourceLine(m_loader, m_callSite.get(), range.start(), range.end()));
}

// --- InlineCallerSourceLineIterator

namespace {

/// Of a module's functions, none of which is an inlined body, those that have a say in the lines of one file: something
/// lies in them, and they hold or touch rows of it. As rows of several units come out by unit, one between two
/// stretches of rows also parts those in front from those behind; no matter which.
class FileFunctionsIterator final : public SymMgrObject<SymbolRangeIterator> {
public:
    FileFunctionsIterator(std::shared_ptr<FunctionPieces const> pieces, LineTable const& table, LineQuery const& query)
        : m_pieces(std::move(pieces)), m_query(query), m_stretches(table.stretches(query)) {
        FileFunctionsIterator::reset();
    }

    SymMgrObjectPtr<ISymbolRange> current() override {
        return m_piece < m_pieces->size() ? m_pieces->range(m_piece, m_query.start, m_query.end)
                                          : SymMgrObjectPtr<ISymbolRange>();
    }
    bool next() override {
        if (m_piece < m_pieces->size()) {
            settle(m_piece + 1);
        }
        return m_piece < m_pieces->size();
    }
    void reset() override {
        m_stretch = 0;
        m_partedGap = 0; // nothing is in front of the first stretch
        settle(m_query.start < m_query.end ? m_pieces->firstEndingFrom(m_query.start + 1) : m_pieces->size());
    }

private:
    void settle(std::size_t piece);

    std::shared_ptr<FunctionPieces const> m_pieces;
    LineQuery m_query;
    LineStretches m_stretches;
    std::size_t m_stretch = 0;   ///< The first that is not in front of the piece.
    std::size_t m_partedGap = 0; ///< The last gap that was looked at for a function, by the stretch behind it.
    std::size_t m_piece = 0;     ///< The count of pieces at the end.
};

/// Goes to the first such piece at or behind one.
void FileFunctionsIterator::settle(std::size_t piece) {
    FunctionPieces const& pieces = *m_pieces;
    std::vector<LineStretches::Stretch> const& at = m_stretches.at;
    for (m_piece = piece; m_piece < pieces.size() && pieces[m_piece].start < m_query.end;) {
        while (m_stretch < at.size() && at[m_stretch].end < pieces[m_piece].start) {
            ++m_stretch;
        }
        if (m_stretch == at.size()) {
            break;
        }
        if (pieces[m_piece].end >= at[m_stretch].start) {
            if (pieces.hasInner(m_piece, m_query.start, m_query.end)) {
                return;
            }
            ++m_piece;
            continue;
        }
        std::size_t const behindGap = pieces.firstEndingFrom(at[m_stretch].start);
        if (m_stretches.mayBeOfSeveralUnits && m_partedGap != m_stretch) {
            m_partedGap = m_stretch;
            m_piece = pieces.nextWithInner(m_piece, behindGap);
            if (m_piece < behindGap) {
                return;
            }
        }
        m_piece = behindGap;
    }
    m_piece = pieces.size();
}

} // namespace

InlineCallerSourceLineIterator::InlineCallerSourceLineIterator(ILineTable& table, LineQuery const& query, Scope* scope)
    : m_table(&table), m_query(query), m_loader(scope != nullptr ? scope->loader() : nullptr) {
    if (scope != nullptr) {
        findRanges(*scope);
    }
    reset();
}

void InlineCallerSourceLineIterator::findRanges(Scope& scope) {
    if (isAddressQuestion()) {
        scope.symbolRanges(m_ranges, m_query.start, m_query.end, symbol_kind_Function);
        return;
    }
    auto const* const table = dynamic_cast<LineTable const*>(m_table.get());
    bool const isForFile = table != nullptr && m_query.fileId != k_allFiles && scope.parentScope() == nullptr;
    auto const pieces = isForFile ? scope.functionPieces() : nullptr;
    m_areAllUseful = pieces && !pieces->hasInlines();
    if (m_areAllUseful) {
        m_ranges = new FileFunctionsIterator(pieces, *table, m_query);
    } else {
        scope.nonOverlappedSymbolRanges(m_ranges, m_query.start, m_query.end, symbol_kind_Function, nullptr);
    }
}

bool InlineCallerSourceLineIterator::isUseful(ISymbolRange& range) const {
    if (isAddressQuestion() || m_areAllUseful || range.inlineInstance() != nullptr) {
        return true;
    }
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> inner;
    range.innerRanges(inner);
    return inner && inner->current();
}

void InlineCallerSourceLineIterator::takeUsefulRange() {
    m_isRangeUsed = false;
    m_range = nullptr;
    while (m_ranges) {
        SymMgrObjectPtr<ISymbolRange> const range = m_ranges->current();
        if (!range || isUseful(*range)) {
            m_range = range;
            return;
        }
        m_ranges->next();
    }
}

unsigned long long InlineCallerSourceLineIterator::startOfRange() const {
    return isAddressQuestion() ? m_query.start : static_cast<SymbolRange&>(*m_range).start();
}

unsigned long long InlineCallerSourceLineIterator::endOfRange() const {
    return isAddressQuestion() ? m_query.start : static_cast<SymbolRange&>(*m_range).end();
}

void InlineCallerSourceLineIterator::reset() {
    if (m_ranges) {
        m_ranges->reset();
    }
    m_lines = nullptr;
    m_callerLines = nullptr;
    takeUsefulRange();
    unsigned long long const limit = m_range ? startOfRange() : m_query.end;
    bool const isFound = m_range && limit <= m_query.start ? stepIntoRange() : askTable(m_query.start, limit);
    if (!isFound) {
        next();
    }
}

/// Without a filter for the file a stretch is asked for by its start alone: clients know what comes of
/// it.
bool InlineCallerSourceLineIterator::askTable(unsigned long long from, unsigned long long to) {
    if (m_query.fileId != k_allFiles) {
        m_table->sourceLines(m_lines, m_query.unit, m_query.fileId, from, to);
    } else {
        m_table->sourceLinesByAddress(m_lines, from, m_query.unit, k_allFiles);
    }
    return static_cast<bool>(m_lines->current());
}

bool InlineCallerSourceLineIterator::fitsFilter(SourceLines& lines) const {
    SymMgrObjectPtr<ISourceLine> const first = lines.current();
    if (!first || m_query.fileId == k_allFiles) {
        return static_cast<bool>(first);
    }
    return static_cast<SourceLocation*>(first->location())->fileId() == m_query.fileId;
}

bool InlineCallerSourceLineIterator::stepIntoRange() {
    m_isRangeUsed = true;
    if (IInlineInstance* const instance = m_range->inlineInstance()) {
        return stepIntoInline(*instance);
    }
    auto& range = static_cast<SymbolRange&>(*m_range);
    if (Symbol* const symbol = range.scope()->symbolImpl()) {
        SymMgrObjectPtr<SourceLines> own;
        symbol->sourceLinesIn(own, startOfRange(), endOfRange());
        if (own && fitsFilter(*own)) {
            m_callerLines = own;
            return true;
        }
    }
    if (askTable(startOfRange(), endOfRange()) && fitsFilter(*m_lines)) {
        return true;
    }
    m_lines = nullptr;
    return false;
}

bool InlineCallerSourceLineIterator::stepIntoInline(IInlineInstance& instance) {
    if (!instance.hasCallSite()) {
        return false;
    }
    SymMgrObjectPtr<ISourceLocation> callSite;
    instance.callSite(callSite);
    if (!callSite) {
        ORV_ERROR("srcLocation == NULL ");
        return false;
    }
    if (static_cast<SourceLocation*>(callSite.get())->fileId() != m_query.fileId) {
        return false;
    }
    m_callerLines = new RangeCallerSourceLineIterator(m_loader, m_range.get(), callSite.get());
    return true;
}

/// Goes on behind the range; true if the gap to the next one has lines.
bool InlineCallerSourceLineIterator::leaveRange() {
    m_lines = nullptr;
    m_callerLines = nullptr;
    unsigned long long const from = endOfRange();
    m_ranges->next();
    takeUsefulRange();
    unsigned long long const to = isAddressQuestion() ? m_query.start : m_range ? startOfRange() : m_query.end;
    return from < to && askTable(from, to);
}

bool InlineCallerSourceLineIterator::next() {
    for (;;) {
        if ((m_lines && m_lines->next()) || (m_callerLines && m_callerLines->next())) {
            return true;
        }
        if (!m_range) {
            return false;
        }
        if (!m_isRangeUsed) {
            m_lines = nullptr;
            if (stepIntoRange()) {
                return true;
            }
        }
        if (leaveRange()) {
            return true;
        }
    }
}

SymMgrObjectPtr<ISourceLine> InlineCallerSourceLineIterator::current() {
    if (m_callerLines) {
        return m_callerLines->current();
    }
    return m_lines ? m_lines->current() : SymMgrObjectPtr<ISourceLine>();
}

} // namespace ORV_3_30
