// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The disjoint walk over the functions of a table, kept for who looks at parts of it again and again.
///
///     std::shared_ptr<FunctionPieces const> pieces = table.functionPieces();
///     for (std::size_t i = pieces->firstEndingFrom(0x1000); i < pieces->size(); ++i) ...
#pragma once

#include "orv/orv_symbolrange.h"
#include "symbols/orv_range_record.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace ORV_3_30 {

class SymbolTable;

/// As the table is when it is made; the table makes another one once more has come. Any number of threads.
class FunctionPieces {
public:
    struct Piece {
        unsigned long long start;
        unsigned long long end;
        RangeRecord const* record; ///< Who wins there.
    };

    explicit FunctionPieces(SymbolTable& table);

    std::size_t size() const { return m_pieces.size(); }
    Piece const& operator[](std::size_t index) const { return m_pieces[index]; }
    /// True if one is an inlined body.
    bool hasInlines() const { return m_hasInlines; }
    /// By the arrivals of the table when it was made.
    std::uint32_t version() const { return m_version; }

    /// The first piece that ends at or behind an address; the size if there is none.
    std::size_t firstEndingFrom(unsigned long long address) const;
    /// A piece cut to a stretch. Made anew each time.
    SymMgrObjectPtr<ISymbolRange> range(std::size_t index, unsigned long long start = 0,
                                        unsigned long long end = ~0ULL) const;
    /// True if something lies in what a stretch leaves of a piece.
    bool hasInner(std::size_t index, unsigned long long start = 0, unsigned long long end = ~0ULL) const;
    /// The first piece in [index, limit) in which something lies; the limit if there is none. Pieces in which nothing
    /// does are looked at once and passed over together from then on.
    std::size_t nextWithInner(std::size_t index, std::size_t limit) const;

private:
    std::size_t firstLeft(std::size_t index) const;

    SymbolTable& m_table;
    std::uint32_t m_version;
    bool m_hasInlines = false;
    std::vector<Piece> m_pieces; ///< By address.
    /// Of each piece itself, or where something lies in none from it on, one behind: a forest, and the size at its end.
    std::unique_ptr<std::atomic<std::uint32_t>[]> m_behind;
};

} // namespace ORV_3_30
