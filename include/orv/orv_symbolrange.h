// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The answer to the question of what stands at an address.
#pragma once

#include "orv/orv_iterator.h"
#include "orv/orv_status.h"

#include <utility>
#include <vector>

namespace ORV_3_30 {

/// A half open stretch of pseudo addresses bound to a symbol. Made anew for each answer, counted;
/// plain pointers that it gives belong to the bank. One range object belongs to one thread.
class ORV_API ISymbolRange : public ISymMgrObject {
public:
    virtual void startAddress(SymMgrObjectPtr<IAddress>& out) = 0;
    /// The first address behind the range.
    virtual void endAddress(SymMgrObjectPtr<IAddress>& out) = 0;
    /// Bytes from start to end; 0 for a label.
    virtual unsigned long long size() = 0;
    /// Bytes from start to the next thing in the enclosing scope, or to the end of the segment.
    virtual unsigned long long sizeToNextRange() = 0;
    /// Null for a scope without a symbol.
    virtual ISymbol* symbol() = 0;
    /// Null for a range that is not an inlined body.
    virtual IInlineInstance* inlineInstance() = 0;
    /// The thunk at the range's start, or null.
    virtual IThunk* thunk() = 0;
    /// The range of the enclosing scope that holds this one's start. Of a function at the top that is the module, as a
    /// range that has no symbol and whose bounds mean nothing; of that one null.
    virtual void outerRange(SymMgrObjectPtr<ISymbolRange>& out) = 0;
    /// True if the symbol is entered at this range's start.
    virtual bool isEntryRange() = 0;
    /// Ranges of all kinds inside this one. status_Ok; status_False with a null out if there are none.
    virtual status_t innerRanges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) = 0;
    /// The range inside this one's scope at an address, or null.
    virtual void innerRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, IAddress* address) = 0;

protected:
    ~ISymbolRange() = default;
};

/// A read-only list of address ranges that a client hands to a query.
class ORV_API IRanges {
public:
    virtual unsigned long getCount() const = 0;
    /// False for an index at or above the count. start and size in bytes; for a bank's queries start
    /// is an RVA.
    virtual bool getRange(unsigned long index, unsigned long long& start, unsigned long long& size) const = 0;

protected:
    ~IRanges() = default;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // its table of operations ends with getRange
/// IRanges over a vector of (start, end) pairs, which it does not own. A null vector is empty.
class ORV_API RangesAdapter : public IRanges {
public:
    explicit RangesAdapter(std::vector<std::pair<unsigned long long, unsigned long long>> const* ranges)
        : m_ranges(ranges) {}

    unsigned long getCount() const override;
    bool getRange(unsigned long index, unsigned long long& start, unsigned long long& size) const override;

private:
    std::vector<std::pair<unsigned long long, unsigned long long>> const* m_ranges;
};
#pragma GCC diagnostic pop

} // namespace ORV_3_30
