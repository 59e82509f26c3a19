// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The line program of a method, and how what it says of DEX instructions becomes lines of native code.
///
///     LineState state(taker, mappings, {address, size, executableOffset, execAddress});
///     status_t status = readDebugInfo(dex, classDef.sourceFileIndex, debugInfoOffset, budgets, state);
///     state.finish();
#pragma once

#include "oat/orv_oat_reader.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace ORV_3_30 {

/// Who takes the lines. Addresses are pseudo addresses.
class IOatRows {
public:
    /// The id of a file, which is made if need be.
    virtual std::uint32_t fileId(std::string_view name) = 0;
    virtual void addLine(std::uint32_t fileId, std::uint32_t line, unsigned long long address,
                         unsigned long long size) = 0;

protected:
    ~IOatRows() = default;
};

/// Where the native code of a method lies.
struct OatCode {
    unsigned long long address;
    unsigned long long size;
    std::uint32_t executableOffset;
    unsigned long long execAddress;
};

/// The lines of one method. Each instruction of native code that has a DEX instruction gets the line of that one, or
/// the last one before it; all other bytes of the method get its first line.
class LineState {
public:
    /// mappings: by DEX instruction. They must stay.
    LineState(IOatRows& taker, OatMappings const& mappings, OatCode const& code)
        : m_taker(taker), m_mappings(mappings), m_code(code) {}

    /// From here on lines are of that file.
    void setFile(std::string_view name) { m_fileId = m_taker.fileId(name); }
    /// At a DEX instruction a line begins.
    void takeLine(std::uint32_t dexPc, std::uint32_t line);
    /// After the last one: hands over the rows, by address, as those that follow one another take the least room.
    void finish();

    /// Rows that a method may have at most.
    static std::uint64_t mostRows(OatMappings const& mappings) { return 2 * mappings.size() + 1; }
    std::uint64_t rowCount() const { return m_rows.size(); }

private:
    static constexpr std::uint32_t k_none = ~0U; ///< The format's own -1: a line of that number is none.

    struct Row {
        std::uint32_t fileId;
        std::uint32_t line;
        unsigned long long start;
        unsigned long long size;
    };
    void addMapped(OatMapping const& mapping, std::uint32_t line);
    void addLine(std::uint32_t line, unsigned long long start, unsigned long long size);
    void fillGaps();

    IOatRows& m_taker;
    OatMappings const& m_mappings;
    OatCode m_code;
    std::size_t m_current = 0; ///< In m_mappings.
    std::uint32_t m_fileId = k_none;
    std::uint32_t m_lastLine = k_none;
    std::uint32_t m_firstLine = k_none;
    std::vector<Row> m_rows; ///< Those of native instructions first, as they come.
};

/// status_Ok; status_BadFileFormat where the data end inside an operand; status_False for an opcode that is none. What
/// was handed over in front of that stays.
status_t readDebugInfo(DexLoader const& dex, std::uint32_t sourceFileIndex, std::uint32_t debugInfoOffset,
                       OatBudgets& budgets, LineState& state);

} // namespace ORV_3_30
