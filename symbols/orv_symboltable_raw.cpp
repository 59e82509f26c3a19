// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// How the symbol table takes in the raw symbols of a file: tens of thousands at once.

#include "symbols/orv_symboltable.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <numeric>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace ORV_3_30 {
namespace {

/// An address, as the distance from the lowest one, and the index of what stands there.
template <typename Distance> struct Placed {
    Distance address;
    std::uint32_t index;
};

/// Sorts by address and keeps the order of equal ones: by one byte of the address after the other,
/// the lowest first, leaving out the bytes in which no two addresses differ.
template <typename Distance> void sortByAddress(std::vector<Placed<Distance>>& items) {
    Distance differing = 0;
    for (auto const& item : items) {
        differing |= item.address ^ items.front().address;
    }
    std::vector<Placed<Distance>> sorted(items.size());
    for (unsigned int shift = 0; shift < 8 * sizeof(Distance); shift += 8) {
        if ((differing >> shift & 0xFF) == 0) {
            continue;
        }
        std::array<std::size_t, 257> starts{};
        for (auto const& item : items) {
            ++starts[(item.address >> shift & 0xFF) + 1];
        }
        std::partial_sum(starts.begin(), starts.end(), starts.begin());
        for (auto const& item : items) {
            sorted[starts[item.address >> shift & 0xFF]++] = item;
        }
        items.swap(sorted);
    }
}

/// Calls visit with the indices of the symbols at one address, one address after the other.
template <typename Distance, typename Visitor>
void visitByAddress(RawSymbolBatch& batch, unsigned long long lowest, Visitor visit) {
    std::vector<Placed<Distance>> items;
    items.reserve(batch.size());
    for (std::size_t i = 0; i < batch.size(); ++i) {
        items.push_back({static_cast<Distance>(batch[i].start - lowest), static_cast<std::uint32_t>(i)});
    }
    sortByAddress(items);
    constexpr std::size_t k_ahead = 8;
    std::vector<std::uint32_t> group;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i + k_ahead < items.size()) {
            __builtin_prefetch(&batch[items[i + k_ahead].index]);
        }
        group.push_back(items[i].index);
        if (i + 1 == items.size() || items[i + 1].address != items[i].address) {
            visit(group);
            group.clear();
        }
    }
}

/// From here on it pays to look for duplicates by name.
constexpr std::size_t k_largeGroup = 16;

/// Names are compared whole up to here.
constexpr std::size_t k_usualName = 4096;
/// What may be looked at beyond that, in one load. A file in which thousands of symbols share one name
/// of megabytes can't hold the load up; beyond this, such names count as different.
constexpr std::size_t k_longNameBudget = std::size_t{1} << 28;

} // namespace

/// Comparison of names, with a bound on its cost.
class SymbolTable::Names {
public:
    bool areSame(char const* a, char const* b) {
        for (std::size_t done = 0; a != b; done += k_usualName) {
            if ((done != 0 && !spend(k_usualName)) || std::strncmp(a + done, b + done, k_usualName) != 0) {
                return false;
            }
            if (::strnlen(a + done, k_usualName) < k_usualName) {
                return true;
            }
        }
        return true;
    }

    /// What two names have in common only if they are the same.
    std::string_view key(RangeRecord const& record) {
        std::size_t size = 0;
        for (;;) {
            std::size_t const more = ::strnlen(record.name + size, k_usualName);
            size += more;
            if (more < k_usualName) {
                return {record.name, size};
            }
            if (!spend(k_usualName)) {
                return {reinterpret_cast<char const*>(&record.name), sizeof(record.name)};
            }
        }
    }

    /// The rule of Scope::mergeDecision for two raw symbols that start at one address.
    bool areSameSymbol(RangeRecord const& rival, RangeRecord const& newcomer) {
        bool const endsMatter = rival.isPoint() || !newcomer.isPoint();
        return (!endsMatter || rival.end == newcomer.end) && areSame(rival.name, newcomer.name);
    }

private:
    bool spend(std::size_t bytes) {
        m_left -= std::min(bytes, m_left);
        return m_left != 0;
    }

    std::size_t m_left = k_longNameBudget;
};

void SymbolTable::addRawSymbols(IFileFormatLoader* loader, RawSymbolBatch newcomers) {
    std::unique_lock<Guard> const guard(m_guard);
    std::uint8_t const maker = numberOf(rawMakerOf(loader));
    m_batches.push_back(std::move(newcomers));
    RawSymbolBatch& batch = m_batches.back();
    for (std::size_t i = 0; i < batch.size(); ++i) {
        batch[i].order = m_arrivals++;
        batch[i].maker = maker;
    }
    std::size_t const linkedBefore = m_linked;
    Names names;
    if (m_holdsDeciders) {
        // What a scope decides may depend on what is in the table by then.
        for (std::size_t i = 0; i < batch.size(); ++i) {
            insertRaw(batch[i], names);
        }
    } else {
        insertRawByAddress(batch, names);
    }
    if (m_linked == linkedBefore) {
        m_batches.pop_back(); // all of it was there: a load for further addresses brings little new
    }
}

/// Raw symbols only meet others of the same start, so they may go in by address, which is cheap.
void SymbolTable::insertRawByAddress(RawSymbolBatch& batch, Names& names) {
    unsigned long long lowest = ~0ULL;
    unsigned long long highest = 0;
    for (std::size_t i = 0; i < batch.size(); ++i) {
        lowest = std::min(lowest, batch[i].start);
        highest = std::max(highest, batch[i].start);
    }
    auto const insert = [&](std::vector<std::uint32_t> const& group) {
        if (group.size() < k_largeGroup || !holdsOnlyRaw(batch[group.front()].start)) {
            for (std::uint32_t const index : group) {
                insertRaw(batch[index], names);
            }
        } else {
            insertRawGroup(batch, group, names);
        }
    };
    if (highest - lowest <= 0xFFFFFFFF) {
        visitByAddress<std::uint32_t>(batch, lowest, insert);
    } else {
        visitByAddress<std::uint64_t>(batch, lowest, insert);
    }
}

/// True if nothing but raw symbols starts at an address.
bool SymbolTable::holdsOnlyRaw(unsigned long long address) const {
    Position const at = m_keys.lowerBound(address);
    RangeRecord const* record = !m_keys.isEnd(at) && m_keys.address(at) == address ? m_keys.records(at) : nullptr;
    while (record != nullptr && isRaw(*record)) {
        record = record->next;
    }
    return record == nullptr;
}

/// True for a record that stands for a symbol of a format's own table, as the file has it.
bool SymbolTable::isRaw(RangeRecord const& record) const {
    return record.isDeferred() && !m_makers[record.maker]->givesUnits();
}

void SymbolTable::insertRaw(RangeRecord& symbol, Names& names) {
    Position at = m_keys.lowerBound(symbol.start);
    if (m_keys.isEnd(at) || m_keys.address(at) != symbol.start) {
        at = m_keys.insert(at, symbol.start, symbol.order);
    }
    std::size_t count = 0;
    for (RangeRecord* rival = m_keys.records(at); rival != nullptr; rival = rival->next) {
        if (!isRaw(*rival) || (m_holdsDeciders && ++count == KeyGroup::k_least)) {
            if (!takeIntoRival(at, symbol.side(), symbol.order)) { // the rival decides
                link(at, &symbol);
            }
            return;
        }
        if (names.areSameSymbol(*rival, symbol)) {
            return;
        }
    }
    link(at, &symbol);
}

/// Many raw symbols at one address, in the order of arrival: the outcome is that of insertRaw for
/// each, without a comparison of each with all others.
void SymbolTable::insertRawGroup(RawSymbolBatch& batch, std::vector<std::uint32_t> const& group, Names& names) {
    /// What stands there under one name.
    struct Known {
        std::unordered_set<unsigned long long> ends;
        bool hasExtent = false;
    };
    std::unordered_map<std::string_view, Known> known;
    unsigned long long const address = batch[group.front()].start;
    Position at = m_keys.lowerBound(address);
    if (m_keys.isEnd(at) || m_keys.address(at) != address) {
        at = m_keys.insert(at, address, batch[group.front()].order);
    }
    Records records;
    auto const take = [&](RangeRecord* record, Known& same) {
        records.push_back(record);
        same.ends.insert(record->end);
        same.hasExtent |= !record->isPoint();
    };
    for (RangeRecord* record = m_keys.records(at); record != nullptr; record = record->next) {
        take(record, known[names.key(*record)]);
    }
    std::size_t const before = records.size();
    for (std::uint32_t const index : group) {
        RangeRecord& symbol = batch[index];
        Known& same = known[names.key(symbol)];
        if (same.ends.count(symbol.end) == 0 && !(symbol.isPoint() && same.hasExtent)) {
            take(&symbol, same);
        }
    }
    m_linked += records.size() - before;
    m_groups.erase(address);
    std::stable_sort(records.begin(), records.end(),
                     [](RangeRecord const* a, RangeRecord const* b) { return a->end > b->end; });
    for (std::size_t i = 0; i < records.size(); ++i) {
        records[i]->next = i + 1 < records.size() ? records[i + 1] : nullptr;
    }
    m_keys.setRecords(at, records.front());
}

} // namespace ORV_3_30
