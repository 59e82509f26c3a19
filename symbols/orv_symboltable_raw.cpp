// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// How the symbol table takes in the raw symbols of a file, tens of thousands at once: in the order of their addresses,
// by a radix sort.
#include "symbols/orv_symboltable.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <numeric>

namespace ORV_3_30 {

namespace {

/// An address, and the index of what stands there.
struct Placed {
    unsigned long long address;
    std::uint32_t index;
};

/// Sorts by address and keeps the order of equal ones: by one byte of the address after the other,
/// the lowest first, leaving out the bytes in which no two addresses differ.
void sortByAddress(std::vector<Placed>& items) {
    unsigned long long differing = 0;
    for (Placed const& item : items) {
        differing |= item.address ^ items.front().address;
    }
    std::vector<Placed> sorted(items.size());
    for (unsigned int shift = 0; shift < 64; shift += 8) {
        if ((differing >> shift & 0xFF) == 0) {
            continue;
        }
        std::array<std::size_t, 257> starts{};
        for (Placed const& item : items) {
            ++starts[(item.address >> shift & 0xFF) + 1];
        }
        std::partial_sum(starts.begin(), starts.end(), starts.begin());
        for (Placed const& item : items) {
            sorted[starts[item.address >> shift & 0xFF]++] = item;
        }
        items.swap(sorted);
    }
}

/// Calls visit with the index of one symbol after the other.
template <typename Visitor> void visitByAddress(RawSymbolBatch const& batch, Visitor const& visit) {
    std::vector<Placed> items;
    items.reserve(batch.size());
    for (std::size_t i = 0; i < batch.size(); ++i) {
        items.push_back({batch[i].address, static_cast<std::uint32_t>(i)});
    }
    sortByAddress(items);
    // Symbols and their names lie about in megabytes: looking at each is a matter of fetching it in time.
    constexpr std::size_t k_ahead = 8;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i + k_ahead < items.size()) {
            __builtin_prefetch(&batch[items[i + k_ahead].index]);
        }
        if (i + k_ahead / 2 < items.size()) {
            __builtin_prefetch(batch[items[i + k_ahead / 2].index].name);
        }
        visit(items[i].index);
    }
}

} // namespace

Scope* RawScopeMaker::makeScope(RangeRecord const& record, Scope* parent) {
    return new SymbolScope(m_loader, SymbolName::borrowed(record.name), record.start, parent, record.symbolVisibility(),
                           record.symbolKind());
}

RawScopeMaker& SymbolTable::rawMakerOf(IFileFormatLoader* loader) {
    for (auto const& maker : m_rawMakers) {
        if (maker->loader() == loader) {
            return *maker;
        }
    }
    m_rawMakers.push_back(std::make_unique<RawScopeMaker>(loader));
    return *m_rawMakers.back();
}

void SymbolTable::addRawSymbols(IFileFormatLoader* loader, RawSymbolBatch const& batch) {
    /// What may be looked at of long names in one load.
    constexpr std::size_t k_longNameBudget = std::size_t{1} << 28;
    std::unique_lock<Guard> const guard(m_guard);
    RawScopeMaker& maker = rawMakerOf(loader);
    maker.names().refill(k_longNameBudget);
    std::uint32_t const arrivals = m_arrivals;
    m_arrivals += static_cast<std::uint32_t>(batch.size());
    auto const insertRaw = [&](std::uint32_t index) {
        RawSymbol const& symbol = batch[index];
        if (*symbol.name == '\0') {
            return;
        }
        unsigned long long const end = symbol.address + symbol.size;
        MergeSide const side{symbol.name, symbol.address, end, false, symbol.visibility, symbol.kind};
        insert({side, symbol.address, end, arrivals + index}, maker);
    };
    bool const isOrderFree = std::none_of(m_makers.begin(), m_makers.end(), [](IScopeMaker const* known) {
        return known != nullptr && known->looksAhead();
    });
    if (isOrderFree) {
        visitByAddress(batch, insertRaw); // which is cheap
        return;
    }
    // What is decided may depend on what is in the table by then.
    for (std::uint32_t i = 0; i < batch.size(); ++i) {
        insertRaw(i);
    }
}

} // namespace ORV_3_30
