// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The answer to what stands at an address, with what is found on demand.
#include "symbols/orv_symbolrange.h"

#include "core/orv_address.h"
#include "core/orv_trace.h"
#include "orv/orv_fileformatloader.h"
#include "symbols/orv_scope.h"

namespace ORV_3_30 {
namespace {
constexpr unsigned long long k_open = ~0ULL;
constexpr auto k_allKinds = static_cast<symbol_kind_t>(symbol_kind_Function | symbol_kind_DataAlt | symbol_kind_Data |
                                                       symbol_kind_Other | symbol_kind_FunctionAlt);
} // namespace

unsigned long RangesAdapter::getCount() const { return m_ranges != nullptr ? m_ranges->size() : 0; }

bool RangesAdapter::getRange(unsigned long index, unsigned long long& start, unsigned long long& size) const {
    if (index >= getCount()) {
        return false;
    }
    start = (*m_ranges)[index].first;
    size = (*m_ranges)[index].second - start;
    return true;
}

SymbolRange::SymbolRange(unsigned long long start, unsigned long long end, Scope* scope, IThunk* thunk)
    : m_start(start), m_end(end), m_scope(scope), m_thunk(thunk) {
    if (m_end == k_open) {
        m_end = segmentEnd();
    }
}

unsigned long long SymbolRange::segmentEnd() const {
    IFileFormatLoader* const loader = m_scope->loader();
    ISegment* const segment = loader != nullptr ? loader->segmentByAddress(m_start) : nullptr;
    if (!ORV_ASSERT(segment != nullptr, "seg")) {
        return k_open;
    }
    return loader->preferredLoadAddress() + segment->rva() + segment->memorySize();
}

void SymbolRange::startAddress(SymMgrObjectPtr<IAddress>& out) {
    if (!m_startAddress) {
        m_startAddress = new Address(m_scope->loader(), m_start);
    }
    out = m_startAddress;
}

void SymbolRange::endAddress(SymMgrObjectPtr<IAddress>& out) {
    if (!m_endAddress) {
        m_endAddress = new Address(m_scope->loader(), m_end);
    }
    out = m_endAddress;
}

unsigned long long SymbolRange::sizeToNextRange() {
    Scope* const parent = m_scope->parentScope();
    SymMgrObjectPtr<SymbolRangeIterator> following;
    if (parent != nullptr && parent->symbolRanges(following, m_end, k_open, symbol_kind_t(0)) == status_Ok) {
        for (auto range = following->current(); range; range = following->current()) {
            SymMgrObjectPtr<IAddress> start;
            range->startAddress(start);
            if (start->pseudoAddr() >= m_end && start->pseudoAddr() > m_start) {
                return start->pseudoAddr() - m_start;
            }
            following->next();
        }
    }
    unsigned long long const end = segmentEnd();
    return (end < m_end ? m_end : end) - m_start;
}

ISymbol* SymbolRange::symbol() { return m_scope->symbol(); }

IInlineInstance* SymbolRange::inlineInstance() { return m_scope->inlineInstance(); }

IThunk* SymbolRange::thunk() {
    if (m_thunk == nullptr && !m_thunkLookedUp) {
        m_thunk = m_scope->thunkAt(m_start);
        m_thunkLookedUp = true;
    }
    return m_thunk;
}

void SymbolRange::outerRange(SymMgrObjectPtr<ISymbolRange>& out) {
    Scope* const parent = m_scope->parentScope();
    if (parent == nullptr) {
        out = nullptr;
        return;
    }
    unsigned long long start = k_open;
    unsigned long long end = 0;
    parent->rangeAt(start, end, m_start);
    out = new SymbolRange(start, end, parent, nullptr);
}

bool SymbolRange::isEntryRange() {
    ISymbol* const symbol = m_scope->symbol();
    SymMgrObjectPtr<IAddress> entry;
    if (symbol == nullptr || symbol->address(entry) != status_Ok || !entry) {
        return true;
    }
    return entry->pseudoAddr() == m_start;
}

status_t SymbolRange::innerRanges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) {
    return m_scope->symbolRanges(out, m_start, m_end, k_allKinds);
}

void SymbolRange::innerRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, IAddress* address) {
    out = nullptr;
    if (address != nullptr) {
        m_scope->symbolRangeByAddress(out, address->pseudoAddr(), k_allKinds, nullptr);
    }
}

} // namespace ORV_3_30
