// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The state machine of debug_info_item without its registers ("Dalvik executable format"), and a walk over the
// mappings of a method beside it, as both go up by DEX instruction.
#include "oat/orv_oat_dex_debug.h"

#include "core/orv_trace.h"

#include <algorithm>
#include <ios>

namespace ORV_3_30 {

// --- LineState

void LineState::takeLine(std::uint32_t dexPc, std::uint32_t line) {
    if (m_firstLine == k_none) {
        m_firstLine = line;
    }
    for (; m_current < m_mappings.size() && m_mappings[m_current].dexPc <= dexPc; ++m_current) {
        if (m_mappings[m_current].dexPc == dexPc) {
            addMapped(m_mappings[m_current], line);
            m_lastLine = line;
        } else if (m_lastLine != k_none) {
            addMapped(m_mappings[m_current], m_lastLine);
        }
    }
    m_lastLine = line;
}

void LineState::addMapped(OatMapping const& mapping, std::uint32_t line) {
    ORV_ASSERT(mapping.nativeOffset >= m_code.executableOffset, "nativeOffset >= m_execOffset");
    unsigned long long const offset = mapping.nativeOffset;
    addLine(line, offset - m_code.executableOffset + m_code.execAddress, 1);
}

void LineState::addLine(std::uint32_t line, unsigned long long start, unsigned long long size) {
    ORV_INFO("Adding line to table: fileID=" << m_fileId << " line=" << line << " range: 0x" << std::hex << start
                                             << " - 0x" << size);
    m_rows.push_back({m_fileId, line, start, size});
}

void LineState::finish() {
    if (m_fileId != k_none && m_firstLine != k_none) {
        fillGaps();
    }
    std::stable_sort(m_rows.begin(), m_rows.end(), [](Row const& a, Row const& b) { return a.start < b.start; });
    for (Row const& row : m_rows) {
        m_taker.addLine(row.fileId, row.line, row.start, row.size);
    }
}

/// All that has no line of its own has the method's first one.
void LineState::fillGaps() {
    std::vector<unsigned long long> ends{m_code.address + m_code.size};
    for (Row const& row : m_rows) {
        ends.push_back(row.start);
    }
    std::sort(ends.begin(), ends.end());
    unsigned long long from = m_code.address;
    for (unsigned long long const end : ends) {
        if (from < end) {
            addLine(m_firstLine, from, end - from);
        }
        from = end + 1;
    }
}

// --- The program

namespace {

enum Opcode : std::uint8_t {
    DBG_END_SEQUENCE = 0x00,
    DBG_ADVANCE_PC = 0x01,
    DBG_ADVANCE_LINE = 0x02,
    DBG_START_LOCAL = 0x03,
    DBG_START_LOCAL_EXTENDED = 0x04,
    DBG_END_LOCAL = 0x05,
    DBG_RESTART_LOCAL = 0x06,
    DBG_SET_PROLOGUE_END = 0x07,
    DBG_SET_EPILOGUE_BEGIN = 0x08,
    DBG_SET_FILE = 0x09,
    DBG_FIRST_SPECIAL = 0x0a
};
constexpr int k_lineBase = -4;
constexpr unsigned int k_lineRange = 15;

class Program {
public:
    Program(DexLoader const& dex, ByteCursor cursor, OatBudgets& budgets, LineState& state)
        : m_dex(dex), m_cursor(cursor), m_budgets(budgets), m_state(state) {}

    status_t run(std::uint32_t sourceFileIndex);
    std::uint64_t position() const { return m_cursor.position(); }

private:
    bool readHead();
    bool skipNumbers(std::uint64_t count);
    status_t step(std::uint8_t opcode);
    status_t setFile();
    void special(std::uint8_t opcode);
    /// The name of a string, empty for none; false if it is too dear, which ends the program.
    bool fileName(std::uint32_t index, std::string_view& out);

    DexLoader const& m_dex;
    ByteCursor m_cursor;
    OatBudgets& m_budgets;
    LineState& m_state;
    std::uint32_t m_address = 0;
    std::uint32_t m_line = 0;
    bool m_isEnded = false;
};

bool Program::skipNumbers(std::uint64_t count) {
    for (std::uint32_t number = 0; count != 0; --count) {
        if (!m_cursor.readUleb(number)) {
            return false;
        }
    }
    return true;
}

bool Program::readHead() {
    std::uint32_t parameters = 0;
    return m_cursor.readUleb(m_line) && m_cursor.readUleb(parameters) && skipNumbers(parameters);
}

bool Program::fileName(std::uint32_t index, std::string_view& out) {
    m_dex.string(index, out);
    return m_budgets.nameBytes.spend(out.size());
}

status_t Program::run(std::uint32_t sourceFileIndex) {
    if (!readHead()) {
        return status_BadFileFormat;
    }
    std::string_view file;
    if (!fileName(sourceFileIndex, file)) {
        return status_Ok;
    }
    m_state.setFile(file);
    std::uint8_t opcode = 0;
    while (!m_isEnded && m_cursor.remaining() >= 2 && m_cursor.read(opcode) && opcode != DBG_END_SEQUENCE) {
        status_t const status = step(opcode);
        if (status != status_Ok) {
            return status;
        }
    }
    return status_Ok;
}

status_t Program::step(std::uint8_t opcode) {
    auto const bounded = [](bool isRead) { return isRead ? status_Ok : status_BadFileFormat; };
    constexpr std::uint64_t k_localOperands = 3;
    std::uint32_t operand = 0;
    bool isRead = true;
    switch (opcode) {
    case DBG_ADVANCE_PC:
        isRead = m_cursor.readUleb(operand);
        m_address += operand;
        return bounded(isRead);
    case DBG_ADVANCE_LINE:
        isRead = m_cursor.readSleb(operand);
        m_line += operand;
        return bounded(isRead);
    case DBG_START_LOCAL: return bounded(skipNumbers(k_localOperands));
    case DBG_START_LOCAL_EXTENDED: return bounded(skipNumbers(k_localOperands + 1));
    case DBG_END_LOCAL:
    case DBG_RESTART_LOCAL: return bounded(skipNumbers(1));
    case DBG_SET_PROLOGUE_END:
    case DBG_SET_EPILOGUE_BEGIN: return status_Ok;
    case DBG_SET_FILE: return setFile();
    default: special(opcode); return status_Ok;
    }
}

status_t Program::setFile() {
    std::uint32_t number = 0;
    if (!m_cursor.readUleb(number)) {
        return status_BadFileFormat;
    }
    if (number == 0) { // no file: taken for an opcode that is none, by design
        ORV_WARN("Dex line machine: unknown opcode " << unsigned{DBG_SET_FILE});
        return status_False;
    }
    std::string_view name;
    m_isEnded = !fileName(number - 1, name);
    if (!m_isEnded && !name.empty()) { // else the file stays
        m_state.setFile(name);
    }
    return status_Ok;
}

void Program::special(std::uint8_t opcode) {
    unsigned int const adjusted = opcode - DBG_FIRST_SPECIAL;
    m_address += adjusted / k_lineRange;
    m_line += adjusted % k_lineRange + static_cast<unsigned int>(k_lineBase);
    ORV_INFO("     Line to dex address: " << m_line << " - 0x" << std::hex << m_address);
    m_state.takeLine(m_address, m_line);
}

} // namespace

status_t readDebugInfo(DexLoader const& dex, std::uint32_t sourceFileIndex, std::uint32_t debugInfoOffset,
                       OatBudgets& budgets, LineState& state) {
    ByteCursor cursor;
    if (!dex.at(debugInfoOffset, cursor)) {
        return status_BadFileFormat;
    }
    Program program(dex, cursor, budgets, state);
    status_t const status = program.run(sourceFileIndex);
    budgets.programBytes.settle(program.position() - cursor.position());
    return status;
}

} // namespace ORV_3_30
