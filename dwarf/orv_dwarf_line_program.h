/// Line number programs (DWARF version 4, 6.2).
#pragma once

#include "dwarf/orv_dwarf_walker.h"

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
};

/// One entry of a file table.
struct LineFileEntry {
    std::string_view name;
    std::uint64_t directory;
    std::uint64_t modificationTime;
    std::uint64_t length;

    void read(DwarfWalker& walker);
};

/// The registers.
struct LineState {
    std::uint64_t address = 0;
    std::uint64_t file = 1;
    std::int64_t line = 1;
    std::uint64_t column = 0;
    std::uint64_t discriminator = 0;
    bool isStmt = false;
    bool basicBlock = false;
    bool endSequence = false;
};

/// Runs a program from row to row.
class LineMachine {
public:
    LineMachine(DwarfWalker program, LineHeader const& header);

    /// True at a row; false when the bytes are used up. A file that the program defines is handed to
    /// defineFile(LineFileEntry const&).
    template <typename DefineFile> bool nextRow(DefineFile defineFile);
    LineState const& state() const { return m_state; }

private:
    enum class Step { Goes, Row, DefinesFile };

    void prepare();
    Step special(unsigned int opcode);
    Step standard(unsigned int opcode);
    Step extended();
    void advance(std::uint64_t operations) {
        m_state.address += operations * m_header.minimumInstructionLength;
    }

    DwarfWalker m_walker;
    LineHeader m_header;
    LineState m_state;
    LineFileEntry m_defined{};
    bool m_clearAfterRow = false;
    bool m_resetAfterRow = false;
};

template <typename DefineFile> bool LineMachine::nextRow(DefineFile defineFile) {
    std::uint8_t opcode = 0;
    while (m_walker.getUnsigned1(opcode) == status_Ok) {
        prepare();
        Step const step = opcode >= m_header.opcodeBase ? special(opcode)
                          : opcode == 0                 ? extended()
                                                        : standard(opcode);
        m_resetAfterRow = m_state.endSequence;
        if (step == Step::Row) {
            return true;
        }
        if (step == Step::DefinesFile) {
            defineFile(m_defined);
        }
    }
    return false;
}

} // namespace ORV_3_30
