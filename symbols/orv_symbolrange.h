// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The implementation of ISymbolRange.
#pragma once

#include "orv/orv_symbolrange.h"

namespace ORV_3_30 {

class Scope;

/// A small value object, made for each answer. Belongs to one thread: the caches take no lock.
class SymbolRange final : public SymMgrObject<ISymbolRange> {
public:
    /// An end of all ones stands for the end of the segment that holds start.
    SymbolRange(unsigned long long start, unsigned long long end, Scope* scope, IThunk* thunk);

    void startAddress(SymMgrObjectPtr<IAddress>& out) override;
    void endAddress(SymMgrObjectPtr<IAddress>& out) override;
    unsigned long long size() override { return m_end - m_start; }
    unsigned long long sizeToNextRange() override;
    ISymbol* symbol() override;
    IInlineInstance* inlineInstance() override;
    IThunk* thunk() override;
    void outerRange(SymMgrObjectPtr<ISymbolRange>& out) override;
    bool isEntryRange() override;
    status_t innerRanges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) override;
    void innerRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, IAddress* address) override;

    unsigned long long start() const { return m_start; }
    unsigned long long end() const { return m_end; }
    Scope* scope() const { return m_scope; }

private:
    unsigned long long segmentEnd() const;

    unsigned long long m_start;
    unsigned long long m_end;
    SymMgrObjectPtr<IAddress> m_startAddress;
    SymMgrObjectPtr<IAddress> m_endAddress;
    Scope* m_scope; ///< Not counted: the bank's tables keep it.
    IThunk* m_thunk;
    bool m_thunkLookedUp = false;
};

} // namespace ORV_3_30
