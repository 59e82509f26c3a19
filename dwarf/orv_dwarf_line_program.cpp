// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The line number state machine (DWARF version 4, 6.2): opcodes by a switch, rows by sequence.
#include "dwarf/orv_dwarf_line_program.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_constants.h"
#include "dwarf/orv_dwarf_reader.h"

#include <algorithm>
#include <cstring>

namespace ORV_3_30 {

void LineFileEntry::read(DwarfWalker& walker, EmptyName empty) {
    std::uint64_t size = 0;
    char const* const text = walker.text(size);
    name = {text, size};
    directory = 0;
    modificationTime = 0;
    length = 0;
    if (size == 0 && empty == EmptyName::Ends) {
        return;
    }
    directory = walker.unsignedLeb();
    modificationTime = walker.unsignedLeb();
    length = walker.unsignedLeb();
}

// --- The machine

LineMachine::LineMachine(DwarfWalker program, LineHeader const& header) : m_walker(program), m_header(header) {
    reset();
    makeSpecialSteps();
}

void LineMachine::reset() {
    m_state = LineState();
    m_state.isStmt = m_header.defaultIsStmt;
}

void LineMachine::makeSpecialSteps() {
    for (unsigned int opcode = m_header.opcodeBase; opcode < m_special.size(); ++opcode) {
        unsigned int const adjusted = opcode - m_header.opcodeBase;
        // A range of 0 divides nothing: such an opcode moves by the base alone.
        unsigned int const range = m_header.lineRange;
        unsigned int const operations = range != 0 ? adjusted / range : 0;
        unsigned int const remainder = range != 0 ? adjusted % range : 0;
        m_special[opcode] = {operations * m_header.minimumInstructionLength,
                             static_cast<std::int16_t>(static_cast<int>(remainder) + m_header.lineBase)};
    }
}

LineMachine::Step LineMachine::standard(unsigned int opcode) {
    switch (opcode) {
    case DW_LNS_copy: return Step::Row;
    case DW_LNS_advance_pc: advance(m_walker.unsignedLeb()); break;
    case DW_LNS_advance_line: moveLine(m_walker.signedLeb()); break;
    case DW_LNS_set_file: m_state.file = m_walker.unsignedLeb(); break;
    case DW_LNS_set_column: m_state.column = m_walker.unsignedLeb(); break;
    case DW_LNS_negate_stmt: m_state.isStmt = !m_state.isStmt; break;
    case DW_LNS_set_basic_block: m_state.basicBlock = true; break;
    case DW_LNS_const_add_pc:
        // Not in units of the instruction length, unlike a special opcode: this is required as it stands.
        m_state.address += m_header.lineRange != 0 ? (255 - m_header.opcodeBase) / m_header.lineRange : 0;
        break;
    case DW_LNS_fixed_advance_pc: {
        std::uint16_t operand = 0;
        m_walker.getUnsigned2(operand);
        // Read as signed: this too is required as it stands.
        m_state.address += static_cast<std::uint64_t>(std::int64_t{static_cast<std::int16_t>(operand)});
        break;
    }
    case DW_LNS_set_prologue_end:
    case DW_LNS_set_epilogue_begin: break;
    case DW_LNS_set_isa: m_walker.skipLeb(); break;
    default: ORV_ASSERT(false, "false"); break; // its operands are taken for opcodes
    }
    return Step::Goes;
}

LineMachine::Step LineMachine::extended() {
    std::uint64_t const length = m_walker.unsignedLeb();
    DwarfWalker operands = m_walker;
    m_walker.skip(length);
    operands.limit(m_walker.offset());
    std::uint8_t opcode = 0;
    operands.getUnsigned1(opcode);
    switch (opcode) {
    case DW_LNE_end_sequence: m_state.endSequence = true; return Step::Row;
    case DW_LNE_set_address: m_state.address = operands.address(); break;
    case DW_LNE_define_file: m_defined.read(operands, LineFileEntry::EmptyName::Counts); return Step::DefinesFile;
    case DW_LNE_set_discriminator: m_state.discriminator = operands.unsignedLeb(); break;
    default: ORV_ERROR("Line machine do not support opcode " << static_cast<unsigned int>(opcode)); break;
    }
    return Step::Goes;
}

// --- A unit's program

namespace {

/// Reads the length, and cuts the walker to it. True for 8-byte offsets.
bool enterLineUnit(DwarfWalker& walker) {
    std::uint64_t length = 0;
    bool is64 = false;
    if (walker.getUnsigned4(length) == status_Ok && length == 0xFFFFFFFF) {
        is64 = true;
        walker.getUnsigned8(length);
    }
    if (length < walker.remaining()) {
        walker.limit(walker.offset() + length);
    }
    return is64;
}

/// Reads what stands ahead of the program, and moves the walker to it.
status_t readLineHeader(DwarfWalker& walker, bool is64, LineHeader& header, LineFiles& files,
                        std::uint64_t& bytesRead) {
    std::uint64_t const begin = walker.offset();
    unsigned int version = 0;
    walker.getUnsigned2(version);
    ORV_DEBUG("Line info version: " << version);
    if (version > 4) {
        return status_UnsupportedFileVersion;
    }
    std::uint64_t headerLength = 0;
    walker.getOffset(is64, headerLength);
    std::uint64_t const program = walker.offset() + std::min(headerLength, walker.remaining());
    walker.getUnsigned1(header.minimumInstructionLength);
    ORV_ASSERT(1 <= header.minimumInstructionLength, "1 <= minimumInstructionLength");
    ORV_ASSERT(header.minimumInstructionLength <= 4, "minimumInstructionLength <= 4");
    if (version >= 4) {
        walker.skip(1); // maximum_operations_per_instruction
    }
    unsigned int defaultIsStmt = 0;
    walker.getUnsigned1(defaultIsStmt);
    ORV_ASSERT(defaultIsStmt < 2, "defaultIsStmt < 2");
    header.defaultIsStmt = defaultIsStmt != 0;
    unsigned int lineBase = 0;
    walker.getUnsigned1(lineBase);
    header.lineBase = static_cast<signed char>(lineBase);
    walker.getUnsigned1(header.lineRange);
    walker.getUnsigned1(header.opcodeBase);
    walker.skip(header.opcodeBase != 0 ? header.opcodeBase - 1 : 0); // standard_opcode_lengths
    for (;;) {
        std::uint64_t size = 0;
        char const* const text = walker.text(size);
        if (size == 0) {
            break;
        }
        files.addDirectory({text, size});
    }
    for (;;) {
        LineFileEntry entry{};
        entry.read(walker, LineFileEntry::EmptyName::Ends);
        if (entry.name.empty()) {
            break;
        }
        files.addFile(entry);
    }
    bytesRead = walker.offset() - begin;
    walker.seek(program);
    return status_Ok;
}

} // namespace

status_t openLineProgram(DwarfUnit const& unit, LineFiles& files, LineHeader& header, DwarfWalker& program) {
    DwarfReader& reader = unit.reader();
    DwarfBudgets& budgets = reader.budgets();
    program = reader.lineWalker(unit.forms().addrSize);
    if (!unit.hasLineInfo() || !reader.hasDebugLine()) {
        return status_NoDebugInfo;
    }
    if (unit.lineOffset() >= program.size() || budgets.lineHeaderBytes.isSpent()) {
        return status_BadDebugInfo;
    }
    program.seek(unit.lineOffset());
    bool const is64 = enterLineUnit(program);
    std::uint64_t headerBytes = 0;
    status_t const status = readLineHeader(program, is64, header, files, headerBytes);
    budgets.lineHeaderBytes.settle(headerBytes);
    // A unit whose program has been run for too many others keeps its files.
    return status == status_Ok && !budgets.lineBytes.spend(program.remaining()) ? status_BadDebugInfo : status;
}

} // namespace ORV_3_30
