// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Rows are found by binary search over runs by base, and by trees of greatest ends where runs overlap.
#include "lines/orv_linetable_impl.h"

#include "lines/orv_line_iterators.h"

#include <algorithm>
#include <numeric>
#include <tuple>

namespace ORV_3_30 {
namespace {

/// The order of rows that start at one address. Of two that differ in the discriminator alone, each
/// counts as below the other: a newcomer goes behind what is there.
bool isLess(SrcLocator const& a, SrcLocator const& b) {
    if (a.line != b.line) {
        return a.line < b.line;
    }
    if (a.column != b.column) {
        return a.column < b.column;
    }
    return a.discriminator != b.discriminator;
}

/// More rows than this at one address are ordered by line and column alone.
constexpr std::size_t k_mostAtOneStart = 64;

/// How many runs are looked at one by one before the index of ends is asked.
constexpr unsigned int k_stepsBack = 16;

} // namespace

SymMgrObjectPtr<ILineTable> ILineTable::create(IFileFormatLoader& loader, ISrcLineResolver& resolver) {
    return SymMgrObjectPtr<ILineTable>(new LineTable(&loader, &resolver));
}

void LineTable::addLine(unsigned long long unit, unsigned int fileId, unsigned int line, unsigned int column,
                        unsigned long long address, unsigned long long size, unsigned long long discriminator) {
    m_rows.add(unit, {address, address + size, discriminator, line, column, fileId});
    if (m_byAddress.made() != nullptr) {
        m_olderIndices = std::move(*m_byAddress.take());
    }
    if (m_ordered.made() != nullptr) {
        m_ordered.take();
    }
}

void LineTable::cutTo(std::uint32_t rowCount) {
    m_rows.cutTo(rowCount);
    m_byAddress.take();
    m_olderIndices.clear();
    m_ordered.take();
}

void LineTable::sourceLinesByAddress(SymMgrObjectPtr<SourceLines>& out, unsigned long long address,
                                     unsigned long long unit, unsigned int fileId) {
    out = new SourceLineByAddrIterator(*this, {unit, fileId, address, address});
}

void LineTable::sourceLines(SymMgrObjectPtr<SourceLines>& out, unsigned long long unit, unsigned int fileId,
                            unsigned long long start, unsigned long long end) {
    out = new SourceLineIterator(*this, {unit, fileId, start, end});
}

// --- Questions for an address

LineTable::AddressIndex LineTable::makeIndex(std::size_t begin, std::size_t end) const {
    std::vector<LineRows::Run> const& runs = m_rows.runs();
    AddressIndex index;
    index.begin = begin;
    index.runs.resize(end - begin);
    std::iota(index.runs.begin(), index.runs.end(), static_cast<std::uint32_t>(begin));
    auto const byBase = [&](std::uint32_t a, std::uint32_t b) { return runs[a].base < runs[b].base; };
    if (!std::is_sorted(index.runs.begin(), index.runs.end(), byBase)) {
        std::stable_sort(index.runs.begin(), index.runs.end(), byBase);
    }
    index.bases.reserve(index.runs.size());
    index.reach.reserve(index.runs.size());
    for (std::uint32_t const run : index.runs) {
        index.bases.push_back(runs[run].base);
        index.reach.push_back(std::max(runs[run].end, index.reach.empty() ? 0 : index.reach.back()));
    }
    index.ends.build(index.runs.size(), [&](std::size_t i) { return runs[index.runs[i]].end; });
    return index;
}

LineTable::AddressIndices const& LineTable::prepareAddresses() const {
    return m_byAddress.get(m_indexLock, [this] {
        std::size_t const end = m_rows.runs().empty() ? 0 : m_rows.runs().size() - 1;
        auto indices = std::make_unique<AddressIndices>(std::exchange(m_olderIndices, {}));
        std::size_t begin = indices->empty() ? 0 : indices->back().begin + indices->back().runs.size();
        while (begin < end && !indices->empty() && indices->back().runs.size() <= 2 * (end - begin)) {
            begin = indices->back().begin;
            indices->pop_back();
        }
        if (begin < end) {
            indices->push_back(makeIndex(begin, end));
        }
        return indices;
    });
}

/// Hands over the runs over an address, in no particular order.
template <typename Take>
void LineTable::visitAt(AddressIndex const& index, unsigned long long address, Take const& take) const {
    std::vector<LineRows::Run> const& runs = m_rows.runs();
    auto above = static_cast<std::size_t>(std::upper_bound(index.bases.begin(), index.bases.end(), address) -
                                          index.bases.begin());
    // As a rule the run just below is the one, and none before it reaches as far.
    for (unsigned int steps = 0; steps < k_stepsBack && above > 0 && index.reach[above - 1] > address; ++steps) {
        LineRows::Run const& run = runs[index.runs[--above]];
        if (run.end > address) {
            take(run);
        }
    }
    if (above > 0 && index.reach[above - 1] > address) {
        auto const endOf = [&](std::size_t i) { return runs[index.runs[i]].end; };
        for (std::size_t i = index.ends.nextAbove(0, address, endOf); i < above;
             i = index.ends.nextAbove(i + 1, address, endOf)) {
            take(runs[index.runs[i]]);
        }
    }
}

/// Those that pass the query's filters, in no particular order.
std::vector<RowAt> LineTable::collectAt(LineQuery const& query) const {
    std::vector<RowAt> found;
    unsigned long long const address = query.start;
    auto const take = [&](LineRows::Run const& run) {
        std::uint32_t const row = m_rows.rowAt(run, address);
        RowAt const at{m_rows.fileOf(row), run.unit, m_rows.startOf(run, row), row};
        bool const isInUnit = query.unit == k_allUnits || at.unit == query.unit;
        if (isInUnit && (query.fileId == k_allFiles || at.fileId == query.fileId)) {
            found.push_back(at);
        }
    };
    for (AddressIndex const& index : prepareAddresses()) {
        visitAt(index, address, take);
    }
    if (!m_rows.runs().empty()) {
        LineRows::Run const& last = m_rows.runs().back();
        if (last.base <= address && address < last.end) {
            take(last);
        }
    }
    return found;
}

/// The order in which two rows come out. To settle what lies behind the start takes the order of the whole table.
bool LineTable::precedes(RowAt const& a, RowAt const& b) const {
    if (a.key() != b.key()) {
        return a.key() < b.key();
    }
    std::vector<std::uint32_t> const& positions = ordered()->positions;
    return positions[a.row] < positions[b.row];
}

std::vector<RowAt> LineTable::rowsAt(LineQuery const& query) const {
    std::vector<RowAt> found = collectAt(query);
    std::sort(found.begin(), found.end(), [this](RowAt const& a, RowAt const& b) { return precedes(a, b); });
    return found;
}

std::optional<RowAt> LineTable::latestAt(LineQuery const& query) const {
    std::vector<RowAt> const found = collectAt(query);
    auto const latest = std::max_element(found.begin(), found.end(), [this](RowAt const& a, RowAt const& b) {
        return a.start != b.start ? a.start < b.start : precedes(b, a);
    });
    return latest != found.end() ? std::optional(*latest) : std::nullopt;
}

RowsAtAddress::RowsAtAddress(LineTable const& table, unsigned long long address)
    : m_address(address), m_rows(table.rowsAt({k_allUnits, k_allFiles, address, address})) {}

RowAt const* RowsAtAddress::latest(unsigned long long unit, unsigned int fileId) const {
    auto const isAbove = [](auto const& key, RowAt const& at) { return key < std::pair(at.fileId, at.unit); };
    auto const isBelow = [](RowAt const& at, auto const& key) { return at.key() < key; };
    auto const behind = std::upper_bound(m_rows.begin(), m_rows.end(), std::pair(fileId, unit), isAbove);
    if (behind == m_rows.begin() || std::prev(behind)->fileId != fileId || std::prev(behind)->unit != unit) {
        return nullptr;
    }
    return &*std::lower_bound(m_rows.begin(), behind, std::prev(behind)->key(), isBelow);
}

// --- Questions for a stretch

std::shared_ptr<LineTable::Ordered const> const& LineTable::ordered() const {
    return m_ordered.get(m_indexLock,
                         [this] { return std::make_unique<std::shared_ptr<Ordered const>>(collectRanges()); });
}

SrcRange const* LineTable::firstRangeOf(Ordered const& ordered, LineQuery const& query) {
    auto const key = std::pair(query.fileId, query.unit != k_allUnits ? query.unit : 0);
    auto const first =
        std::lower_bound(ordered.ranges.begin(), ordered.ranges.end(), key,
                         [](SrcRange const& r, auto const& k) { return std::pair(r.fileId, r.unit) < k; });
    bool const isFile = first != ordered.ranges.end() && first->fileId == query.fileId;
    bool const isUnit = query.unit == k_allUnits || (isFile && first->unit == query.unit);
    return isFile && isUnit ? &*first : nullptr;
}

SrcRange const* LineTable::rangeOf(Ordered const& ordered, LineQuery const& query) const {
    SrcRange const* const first = firstRangeOf(ordered, query);
    if (first == nullptr || query.unit != k_allUnits || first->ofAllUnits == nullptr) {
        return first;
    }
    return &first->ofAllUnits->get(m_indexLock, [&] {
        auto all = std::make_unique<SrcRange>(SrcRange{query.fileId, k_allUnits, {}, {}, nullptr});
        std::vector<std::pair<unsigned long long, std::uint32_t>> placed;
        std::vector<std::ptrdiff_t> ends{0}; // of units, in each of which the rows are in order
        SrcRange const* const end = ordered.ranges.data() + ordered.ranges.size();
        for (SrcRange const* unit = first; unit != end && unit->fileId == query.fileId; ++unit) {
            for (std::uint32_t const row : unit->rows) {
                placed.emplace_back(m_rows.startOf(m_rows.runOf(row), row), row);
            }
            ends.push_back(static_cast<std::ptrdiff_t>(placed.size()));
        }
        std::size_t const count = ends.size() - 1;
        for (std::size_t width = 1; width < count; width *= 2) {
            for (std::size_t i = 0; i + width < count; i += 2 * width) {
                std::inplace_merge(placed.begin() + ends[i], placed.begin() + ends[i + width],
                                   placed.begin() + ends[std::min(i + 2 * width, count)],
                                   [](auto const& a, auto const& b) { return a.first < b.first; });
            }
        }
        for (auto const& [start, row] : placed) {
            all->rows.push_back(row);
        }
        all->ends.build(all->rows.size(), [&](std::size_t i) { return locator(all->rows[i]).end; });
        return all;
    });
}

std::vector<std::uint32_t> LineTable::rowsIn(SrcRange const& range, LineQuery const& query) const {
    std::vector<std::uint32_t> found;
    auto const endOf = [&](std::size_t i) { return locator(range.rows[i]).end; };
    for (std::size_t i = range.ends.nextAbove(0, query.start, endOf);
         i < range.rows.size() && locator(range.rows[i]).start < query.limit();
         i = range.ends.nextAbove(i + 1, query.start, endOf)) {
        found.push_back(range.rows[i]);
    }
    return found;
}

LineStretches LineTable::stretches(LineQuery const& query) const {
    LineStretches found;
    SrcRange const* const range = rangeOf(*ordered(), query);
    if (range == nullptr) {
        return found;
    }
    found.mayBeOfSeveralUnits = range->unit == k_allUnits;
    for (std::uint32_t const number : rowsIn(*range, query)) {
        SrcLocator const row = locator(number);
        if (!found.at.empty() && row.start <= found.at.back().end) {
            found.at.back().end = std::max(found.at.back().end, row.end);
        } else {
            found.at.push_back({row.start, row.end});
        }
    }
    return found;
}

std::shared_ptr<LineTable::Ordered const> LineTable::collectRanges() const {
    /// A stretch of a run whose rows are of one file.
    struct Piece {
        unsigned int fileId;
        unsigned long long unit;
        std::uint32_t firstRow;
        std::uint32_t count;
    };
    std::vector<Piece> pieces;
    for (LineRows::Run const& run : m_rows.runs()) {
        for (std::uint32_t row = run.firstRow; row < run.firstRow + run.count; ++row) {
            unsigned int const fileId = m_rows.fileOf(row);
            if (row == run.firstRow || pieces.back().fileId != fileId) {
                pieces.push_back({fileId, run.unit, row, 0});
            }
            ++pieces.back().count;
        }
    }
    std::stable_sort(pieces.begin(), pieces.end(), [](Piece const& a, Piece const& b) {
        return std::pair(a.fileId, a.unit) < std::pair(b.fileId, b.unit);
    });
    std::vector<SrcRange> ranges;
    for (Piece const& piece : pieces) {
        if (ranges.empty() || ranges.back().fileId != piece.fileId || ranges.back().unit != piece.unit) {
            ranges.push_back({piece.fileId, piece.unit, {}, {}, nullptr});
        }
        for (std::uint32_t i = 0; i < piece.count; ++i) {
            ranges.back().rows.push_back(piece.firstRow + i);
        }
    }
    std::vector<std::uint32_t> positions(m_rows.size());
    for (std::size_t i = 0; i + 1 < ranges.size(); ++i) {
        bool const isFirst = i == 0 || ranges[i - 1].fileId != ranges[i].fileId;
        if (isFirst && ranges[i + 1].fileId == ranges[i].fileId) {
            ranges[i].ofAllUnits = std::make_unique<Once<SrcRange>>();
        }
    }
    for (SrcRange& range : ranges) {
        orderRange(range);
        for (std::size_t i = 0; i < range.rows.size(); ++i) {
            positions[range.rows[i]] = static_cast<std::uint32_t>(i);
        }
    }
    return std::make_shared<Ordered const>(Ordered{std::move(ranges), std::move(positions)});
}

void LineTable::orderRange(SrcRange& range) const {
    std::vector<std::pair<unsigned long long, std::uint32_t>> placed; // start and row, which tells the arrival
    placed.reserve(range.rows.size());
    for (std::uint32_t const row : range.rows) {
        placed.emplace_back(m_rows.startOf(m_rows.runOf(row), row), row);
    }
    if (!std::is_sorted(placed.begin(), placed.end())) {
        std::sort(placed.begin(), placed.end());
    }
    std::vector<std::uint32_t> same;
    range.rows.clear();
    for (std::size_t i = 0; i < placed.size(); ++i) {
        same.push_back(placed[i].second);
        if (i + 1 == placed.size() || placed[i + 1].first != placed[i].first) {
            orderSameStart(same);
            range.rows.insert(range.rows.end(), same.begin(), same.end());
            same.clear();
        }
    }
    range.rows.shrink_to_fit();
    range.ends.build(range.rows.size(), [&](std::size_t i) { return locator(range.rows[i]).end; });
}

/// Orders rows of one start, given in the order of arrival, as a sorted list with a memory of the last
/// insertion would have it: the search for a place begins there if that row counts as below the new one.
void LineTable::orderSameStart(std::vector<std::uint32_t>& rows) const {
    if (rows.size() < 2) {
        return;
    }
    if (rows.size() > k_mostAtOneStart) {
        std::reverse(rows.begin(), rows.end());
        std::stable_sort(rows.begin(), rows.end(), [this](std::uint32_t a, std::uint32_t b) {
            SrcLocator const left = locator(a);
            SrcLocator const right = locator(b);
            return std::pair(left.line, left.column) < std::pair(right.line, right.column);
        });
        return;
    }
    std::vector<std::pair<SrcLocator, std::uint32_t>> list;
    std::size_t last = 0;
    for (std::uint32_t const row : rows) {
        SrcLocator const own = locator(row);
        std::size_t at = !list.empty() && isLess(list[last].first, own) ? last : 0;
        while (at < list.size() && isLess(list[at].first, own)) {
            ++at;
        }
        list.emplace(list.begin() + static_cast<std::ptrdiff_t>(at), own, row);
        last = at;
    }
    std::transform(list.begin(), list.end(), rows.begin(), [](auto const& entry) { return entry.second; });
}

} // namespace ORV_3_30
