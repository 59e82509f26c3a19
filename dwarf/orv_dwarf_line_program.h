// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Line number programs (DWARF version 5, 6.2).
#pragma once

#include "dwarf/orv_dwarf_unit.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

namespace ORV_3_30 {

/// What the machine needs of a line table's header.
struct LineHeader {
    unsigned int minimumInstructionLength = 0;
    bool defaultIsStmt = false;
    signed char lineBase = 0;
    unsigned int lineRange = 0;
    unsigned int opcodeBase = 0;
    unsigned int firstFile = 1;                    ///< The number of the first file of the table.
    bool isModern = false;                         ///< Reads all opcodes as the format has them.
    std::array<std::uint8_t, 256> operandCounts{}; ///< Of the standard opcodes.
};

/// One entry of a file table.
struct LineFileEntry {
    std::string_view name;
    std::uint64_t directory;
    std::uint64_t modificationTime;
    std::uint64_t length;

    /// What an entry without a name is: the end of a table, or an entry like others.
    enum class EmptyName { Ends, Counts };
    void read(DwarfWalker& walker, EmptyName empty);
};

/// Who keeps the file table of a unit.
class LineFiles {
public:
    virtual void addDirectory(std::string_view directory) = 0;
    virtual void addFile(LineFileEntry const& entry) = 0;
    /// Number of the first file: 1, but for later versions 0. Ahead of all files.
    virtual void setFirstFile(unsigned int number) = 0;

protected:
    ~LineFiles() = default;
};

/// Reads what stands ahead of a unit's program, and gives the program. status_NoDebugInfo for a unit without one,
/// status_BadDebugInfo where it lies outside its section or costs too much, status_UnsupportedFileVersion above 4, with
/// the modern reading above 5.
status_t openLineProgram(DwarfUnit const& unit, LineFiles& files, LineHeader& header, DwarfWalker& program);

/// The registers that a row of the table comes from.
struct LineRow {
    std::uint64_t address = 0;
    std::uint64_t file = 1;
    std::int64_t line = 1;
    std::uint64_t column = 0;
    std::uint64_t discriminator = 0;
};

/// All registers.
struct LineState : LineRow {
    bool isStmt = false;
    bool basicBlock = false;
    bool endSequence = false;
};

/// Runs a program.
class LineMachine {
public:
    LineMachine(DwarfWalker program, LineHeader const& header);

    /// Hands each row to addRow(LineState const&), and each file that the program defines to
    /// defineFile(LineFileEntry const&), until the bytes are used up.
    template <typename AddRow, typename DefineFile> void run(AddRow addRow, DefineFile defineFile);

private:
    enum class Step { Goes, Row, DefinesFile };

    void reset();
    void special(unsigned int opcode) {
        SpecialStep const& step = m_special[opcode];
        m_state.address += step.advance;
        moveLine(step.line);
    }
    void makeSpecialSteps();
    Step standard(unsigned int opcode);
    Step extended();
    /// Wraps round: a program may count as far as it likes.
    void moveLine(std::int64_t lines) {
        m_state.line =
            static_cast<std::int64_t>(static_cast<std::uint64_t>(m_state.line) + static_cast<std::uint64_t>(lines));
    }
    void advance(std::uint64_t operations) { m_state.address += operations * m_header.minimumInstructionLength; }

    /// What a special opcode does, worked out ahead: they make most of the rows.
    struct SpecialStep {
        std::uint32_t advance;
        std::int32_t line;
    };

    DwarfWalker m_walker;
    LineHeader m_header;
    LineState m_state;
    LineFileEntry m_defined{};
    std::array<SpecialStep, 256> m_special{};
};

template <typename AddRow, typename DefineFile> void LineMachine::run(AddRow addRow, DefineFile defineFile) {
    std::uint8_t opcode = 0;
    while (m_walker.getUnsigned1(opcode) == status_Ok) {
        Step step = Step::Row;
        if (opcode >= m_header.opcodeBase) {
            special(opcode);
        } else {
            step = opcode == 0 ? extended() : standard(opcode);
        }
        if (step == Step::Row) {
            addRow(m_state);
            m_state.basicBlock = false;
            m_state.discriminator = 0;
            if (m_state.endSequence) {
                reset();
            }
        } else if (step == Step::DefinesFile) {
            defineFile(m_defined);
        }
    }
}

} // namespace ORV_3_30
