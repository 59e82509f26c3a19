// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// dil: debug information loader. The frame of all: one line chosen among those over an address.
#include "lines/orv_dil.h"

#include "core/orv_trace.h"
#include "lines/orv_caller_lines.h"
#include "lines/orv_line_iterators.h"
#include "lines/orv_sourceline_impl.h"

namespace ORV_3_30 {

status_t SrcLineResolver::sourceLocationByAddress(SymMgrObjectPtr<ISourceLocation>& out, unsigned long long address,
                                                  unsigned long long unit, Scope* scope,
                                                  ISourceLocationChooser* chooser) {
    out = nullptr;
    if (chooser == nullptr) {
        SrcLocator row{};
        unsigned long long rowUnit = 0;
        status_t status = status_Ok;
        if (SymMgrObjectPtr<LineTable> const table = flatTable(status, scope)) {
            if (latestCallerLine(*table, address, unit, scope != nullptr ? scope : m_scope, row, rowUnit)) {
                out = new SourceLocation(this, {rowUnit, row.fileId, row.line, row.column, row.discriminator});
            }
            return status_Ok;
        }
        if (status != status_Ok) {
            return status;
        }
    }
    SymMgrObjectPtr<SourceLines> lines;
    status_t const status = sourceLineIterator(lines, address, address, unit, k_allFiles, scope);
    if (!lines) {
        return status;
    }
    if (chooser != nullptr) {
        // Counted, since the client may hold it for a while.
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLocation>>> const locations(
            new SourceLineToLocIterator(lines.get()));
        return chooser->choose(out, *locations);
    }
    // Of all lines over the address the one that starts last; of several such the first.
    SymMgrObjectPtr<ISourceLine> best;
    unsigned long long bestStart = 0;
    for (bool isLine = true; isLine; isLine = lines->next()) {
        SymMgrObjectPtr<ISourceLine> const line = lines->current();
        if (!line && !best) {
            continue; // the iterator may be empty
        }
        if (!ORV_ASSERT(line, "srcLineIt->current()!=NULL")) {
            continue;
        }
        SymMgrObjectPtr<IAddress> start;
        line->address(start);
        if (!best || start->pseudoAddr() > bestStart) {
            best = line;
            bestStart = start->pseudoAddr();
        }
    }
    if (best) {
        out = best->location();
    }
    return status_Ok;
}

status_t SrcLineResolver::sourceLines(SymMgrObjectPtr<SourceLines>& out, unsigned long long unit, unsigned int fileId,
                                      unsigned long long start, unsigned long long end, Scope* scope) {
    return sourceLineIterator(out, start, end, unit, fileId, scope);
}

status_t SrcLineResolver::sourceLineIterator(SymMgrObjectPtr<SourceLines>& out, unsigned long long start,
                                             unsigned long long end, unsigned long long unit, unsigned int fileId,
                                             Scope* scope) {
    SymMgrObjectPtr<ILineTable> table;
    lineTable(table);
    out = new InlineCallerSourceLineIterator(*table, {unit, fileId, start, end}, scope != nullptr ? scope : m_scope);
    return status_Ok;
}

} // namespace ORV_3_30
