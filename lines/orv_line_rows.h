// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The rows of a line table as they are stored: flat, in the order of arrival.
///
/// A line program gives rows that follow one another, each ending where the next begins. Such a chain
/// is a run: its rows need no end, no unit and no more than a 32-bit distance from the run's base.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

/// One row: what stands in [start, end).
struct SrcLocator {
    unsigned long long start;
    unsigned long long end;
    unsigned long long discriminator;
    unsigned int line;
    unsigned int column;
    unsigned int fileId;
};

/// No lock: the table guards it.
class LineRows {
public:
    struct Run {
        unsigned long long base;
        unsigned long long end;
        unsigned long long unit;
        std::uint32_t firstRow;
        std::uint32_t count;
    };

    /// False for a row that is not taken: one that ends below its start, or one too many, as rows are
    /// numbered with 32 bits.
    bool add(unsigned long long unit, SrcLocator const& row);

    /// Takes out the rows from a number on.
    void cutTo(std::uint32_t size);

    std::uint32_t size() const { return m_size; }
    std::vector<Run> const& runs() const { return m_runs; }
    /// The run that holds a row.
    Run const& runOf(std::uint32_t row) const;
    SrcLocator locator(Run const& run, std::uint32_t row) const;
    /// The row of a run that holds an address; the run must hold it.
    std::uint32_t rowAt(Run const& run, unsigned long long address) const;
    unsigned int fileOf(std::uint32_t row) const { return packed(row).fileId; }
    unsigned long long startOf(Run const& run, std::uint32_t row) const { return run.base + packed(row).offset; }

private:
    /// What does not fit into 16 bits stands apart.
    static constexpr std::uint16_t k_wide = 0xFFFF;
    static constexpr std::uint32_t k_chunkBits = 14;
    static constexpr std::uint32_t k_chunkSize = std::uint32_t{1} << k_chunkBits;

    struct Packed {
        std::uint32_t offset; ///< From the run's base.
        std::uint32_t line;
        std::uint32_t fileId;
        std::uint16_t column; ///< k_wide: column and discriminator stand apart.
        std::uint16_t discriminator;
    };
    struct Wide {
        unsigned int column;
        unsigned long long discriminator;
    };

    Packed const& packed(std::uint32_t row) const { return m_chunks[row >> k_chunkBits][row & (k_chunkSize - 1)]; }

    std::vector<std::unique_ptr<Packed[]>> m_chunks;
    std::uint32_t m_size = 0;
    std::unordered_map<std::uint32_t, Wide> m_wide;
    std::vector<Run> m_runs;
};

} // namespace ORV_3_30
