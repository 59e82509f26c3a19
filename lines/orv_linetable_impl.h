// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The one store of address to line knowledge of a module, whatever the debug format.
///
///     SymMgrObjectPtr<LineTable> table(new LineTable(loader, resolver));
///     table->addLine(unit, fileId, 12, 3, 0x1000, 8, 0);
///     SymMgrObjectPtr<SourceLines> lines;
///     table->sourceLinesByAddress(lines, 0x1004, k_allUnits, k_allFiles);
///
/// Rows go in as they come, and may overlap in any way. What comes out is ordered by file, unit, start,
/// line and column; of two rows that agree in all of these, the one that came later is first. The
/// indices for that are made when a question needs them: a few by address over all rows, and one for
/// each file in each unit.
///
/// Adding and asking at the same time is not guarded: the resolvers fill their tables before anybody
/// asks. Threads that only ask may do so together.
#pragma once

#include "core/orv_once.h"
#include "core/orv_shared_object.h"
#include "lines/orv_end_index.h"
#include "lines/orv_line_rows.h"
#include "orv/orv_debuginfoloader.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <tuple>
#include <vector>

namespace ORV_3_30 {

using SourceLines = IIterator<SymMgrObjectPtr<ISourceLine>>;

constexpr unsigned long long k_allUnits = ~0ULL;
constexpr unsigned int k_allFiles = 0xFFFFFFFF;

class LineTable;

/// What a question asks for: rows in [start, end). One address has start equal to end.
struct LineQuery {
    unsigned long long unit;
    unsigned int fileId;
    unsigned long long start;
    unsigned long long end;

    bool isAddress() const { return start == end && start != ~0ULL; }
    /// A question for an address is one for a byte.
    unsigned long long limit() const { return isAddress() ? end + 1 : end; }
};

/// The rows of one source file in one unit, in the order in which they come out.
struct SrcRange {
    unsigned int fileId;
    unsigned long long unit;
    std::vector<std::uint32_t> rows;
    EndIndex ends;
    /// In the first of several of one file: the rows of all units, by start alone.
    std::unique_ptr<Once<SrcRange>> ofAllUnits;
};

/// Where some rows are, in order. Those that touch are one stretch.
struct LineStretches {
    struct Stretch {
        unsigned long long start;
        unsigned long long end;
    };
    std::vector<Stretch> at;
    bool mayBeOfSeveralUnits = false;
};

/// A row with what it is ordered by, but for what lies behind its start.
struct RowAt {
    unsigned int fileId;
    unsigned long long unit;
    unsigned long long start;
    std::uint32_t row;

    std::tuple<unsigned int, unsigned long long, unsigned long long> key() const { return {fileId, unit, start}; }
};

/// The rows over one address, in the order in which they come out.
class RowsAtAddress {
public:
    RowsAtAddress(LineTable const& table, unsigned long long address);

    unsigned long long address() const { return m_address; }
    /// Of those of one file in one unit the one that starts last, of several such the first; null if there is none.
    RowAt const* latest(unsigned long long unit, unsigned int fileId) const;

private:
    unsigned long long m_address;
    std::vector<RowAt> m_rows;
};

class LineTable final : public SharedObject<SymMgrObject<ILineTable>> {
public:
    /// Holds loader and resolver without a count: both outlive the table.
    LineTable(IFileFormatLoader* loader, ISrcLineResolver* resolver) : m_loader(loader), m_resolver(resolver) {}

    void sourceLinesByAddress(SymMgrObjectPtr<SourceLines>& out, unsigned long long address, unsigned long long unit,
                              unsigned int fileId) override;
    void sourceLines(SymMgrObjectPtr<SourceLines>& out, unsigned long long unit, unsigned int fileId,
                     unsigned long long start, unsigned long long end) override;
    void addLine(unsigned long long unit, unsigned int fileId, unsigned int line, unsigned int column,
                 unsigned long long address, unsigned long long size, unsigned long long discriminator) override;

    IFileFormatLoader* loader() const { return m_loader; }
    ISrcLineResolver* resolver() const { return m_resolver; }

    // For the iterators.

    /// The rows over one address that pass the filters, in order.
    std::vector<RowAt> rowsAt(LineQuery const& query) const;
    /// The one of them that starts last, of several such the first.
    std::optional<RowAt> latestAt(LineQuery const& query) const;
    /// All rows in order: by file, then unit.
    struct Ordered {
        std::vector<SrcRange> ranges;
        std::vector<std::uint32_t> positions; ///< Of each row in its range.
    };
    /// As it is now; rows that come later make another one.
    std::shared_ptr<Ordered const> const& ordered() const;
    /// What holds the rows that a question for a stretch and a file is about; null if there is none. Those of several
    /// units are in one, whose unit is k_allUnits.
    SrcRange const* rangeOf(Ordered const& ordered, LineQuery const& query) const;
    /// The first of those that rangeOf puts together.
    static SrcRange const* firstRangeOf(Ordered const& ordered, LineQuery const& query);
    /// The rows of a range that a question for a stretch finds.
    std::vector<std::uint32_t> rowsIn(SrcRange const& range, LineQuery const& query) const;
    /// Where a question for a file finds rows.
    LineStretches stretches(LineQuery const& query) const;
    SrcLocator locator(std::uint32_t row) const { return m_rows.locator(m_rows.runOf(row), row); }

    unsigned long long unitOf(std::uint32_t row) const { return m_rows.runOf(row).unit; }
    std::uint32_t rowCount() const { return m_rows.size(); }
    /// Takes out the rows of a unit, added last, that could not be read to its end.
    void cutTo(std::uint32_t rowCount);

    /// Makes what questions for addresses need, ahead of the first one.
    void prepare() const { prepareAddresses(); }

private:
    /// Over runs that came one after the other.
    struct AddressIndex {
        std::size_t begin;
        std::vector<std::uint32_t> runs; ///< By base.
        std::vector<unsigned long long> bases;
        std::vector<unsigned long long> reach; ///< The greatest end up to here.
        EndIndex ends;
    };

    /// Over all runs but the last, which may still grow. Each covers more than twice what the next one does, so that
    /// to ask between additions makes none of them anew too often.
    using AddressIndices = std::vector<AddressIndex>;

    AddressIndices const& prepareAddresses() const;
    AddressIndex makeIndex(std::size_t begin, std::size_t end) const;
    std::vector<RowAt> collectAt(LineQuery const& query) const;
    bool precedes(RowAt const& a, RowAt const& b) const;
    template <typename Take>
    void visitAt(AddressIndex const& index, unsigned long long address, Take const& take) const;
    std::shared_ptr<Ordered const> collectRanges() const;
    void orderRange(SrcRange& range) const;
    void orderSameStart(std::vector<std::uint32_t>& rows) const;

    IFileFormatLoader* m_loader;
    ISrcLineResolver* m_resolver;
    LineRows m_rows;
    mutable std::mutex m_indexLock; ///< Guards the making of the indices.
    mutable Once<AddressIndices> m_byAddress;
    mutable AddressIndices m_olderIndices; ///< From before the last rows came.
    mutable Once<std::shared_ptr<Ordered const>> m_ordered;
};

} // namespace ORV_3_30
