// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The line number state machine (DWARF version 5, 6.2): opcodes by a switch, rows by sequence.
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
        // With the classic reading not in units of the instruction length, unlike a special opcode: this is required as
        // it stands.
        m_state.address += (m_header.lineRange != 0 ? (255 - m_header.opcodeBase) / m_header.lineRange : 0) *
                           (m_header.isModern ? m_header.minimumInstructionLength : 1);
        break;
    case DW_LNS_fixed_advance_pc: {
        std::uint16_t operand = 0;
        m_walker.getUnsigned2(operand);
        // With the classic reading as signed: this too is required as it stands.
        m_state.address +=
            m_header.isModern ? operand : static_cast<std::uint64_t>(std::int64_t{static_cast<std::int16_t>(operand)});
        break;
    }
    case DW_LNS_set_prologue_end:
    case DW_LNS_set_epilogue_begin: break;
    case DW_LNS_set_isa: m_walker.skipLeb(); break;
    default:
        if (m_header.isModern) {
            for (unsigned int i = 0; i < m_header.operandCounts[opcode]; ++i) {
                m_walker.skipLeb();
            }
        } else {
            ORV_ASSERT(false, "false"); // its operands are taken for opcodes
        }
        break;
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

/// The lists of directories and of files of a header of version 5, each behind a description of its columns (6.2.4.1).
class LineEntries {
public:
    LineEntries(DwarfWalker& walker, FormContext const& forms, Budget& names)
        : m_walker(walker), m_forms(forms), m_names(names) {}

    /// Hands each entry to visit. False at a form that is refused, and where entries take no bytes.
    template <typename Visit> bool read(Visit visit) {
        std::array<Column, 256> columns;
        unsigned int columnCount = 0;
        m_walker.getUnsigned1(columnCount);
        for (unsigned int i = 0; i < columnCount; ++i) {
            columns[i].content = m_walker.unsignedLeb();
            columns[i].form = m_walker.unsignedLeb();
        }
        std::uint64_t const count = m_walker.unsignedLeb();
        for (std::uint64_t entry = 0; entry < count && !m_walker.atEnd(); ++entry) {
            std::uint64_t const begin = m_walker.offset();
            LineFileEntry file{};
            for (unsigned int i = 0; i < columnCount; ++i) {
                if (!readColumn(columns[i], file)) {
                    return false;
                }
            }
            if (m_walker.offset() == begin) {
                return false; // there might be any number of them
            }
            visit(file);
        }
        return true;
    }

private:
    struct Column {
        std::uint64_t content;
        std::uint64_t form;
    };

    bool readColumn(Column const& column, LineFileEntry& file) {
        AttrValue value{};
        if (!readForm(m_walker, m_forms, column.form, value)) {
            return false;
        }
        switch (column.content) {
        case DW_LNCT_path:
            if (value.data != nullptr && (value.form == DW_FORM_string || value.form == DW_FORM_strp)) {
                auto const* const text = reinterpret_cast<char const*>(value.data);
                file.name = {text, ::strnlen(text, k_longestName)};
                return m_names.settle(file.name.size()) && !m_names.isSpent(); // many may share one
            }
            break;
        case DW_LNCT_directory_index: file.directory = value.value; break;
        case DW_LNCT_timestamp: file.modificationTime = value.value; break;
        case DW_LNCT_size: file.length = value.value; break;
        default: break;
        }
        return true;
    }

    static constexpr std::size_t k_longestName = std::size_t{1} << 16;

    DwarfWalker& m_walker;
    FormContext const& m_forms;
    Budget& m_names;
};

/// The first directory is that of the compilation, which units tell too.
void readLaterFiles(DwarfWalker& walker, FormContext const& forms, Budget& names, LineFiles& files) {
    LineEntries entries(walker, forms, names);
    bool isFirst = true;
    bool const isWhole = entries.read([&](LineFileEntry const& directory) {
        if (!isFirst) {
            files.addDirectory(directory.name);
        }
        isFirst = false;
    });
    files.setFirstFile(0);
    if (isWhole) {
        entries.read([&](LineFileEntry const& file) { files.addFile(file); });
    }
}

void readEarlierFiles(DwarfWalker& walker, LineFiles& files) {
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
}

/// Reads what stands ahead of the program, and moves the walker to it.
status_t readLineHeader(DwarfWalker& walker, DwarfUnit const& unit, bool is64, LineHeader& header, LineFiles& files,
                        std::uint64_t& bytesRead) {
    constexpr unsigned int k_firstWithColumns = 5;
    bool const isModern = unit.reader().isModern();
    std::uint64_t const begin = walker.offset();
    unsigned int version = 0;
    walker.getUnsigned2(version);
    ORV_DEBUG("Line info version: " << version);
    if (version > (isModern ? k_firstWithColumns : k_firstWithColumns - 1)) {
        return status_UnsupportedFileVersion;
    }
    if (version == k_firstWithColumns) {
        walker.skip(2); // sizes of addresses and of segment selectors
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
    header.isModern = isModern;
    for (unsigned int opcode = 1; opcode < header.opcodeBase; ++opcode) {
        walker.getUnsigned1(header.operandCounts[opcode]);
    }
    if (version == k_firstWithColumns) {
        FormContext forms = unit.forms();
        forms.is64 = is64;
        DwarfWalker lists = walker;
        lists.limit(program);
        readLaterFiles(lists, forms, unit.reader().budgets().lineHeaderBytes, files);
        walker.seek(lists.offset());
    } else {
        readEarlierFiles(walker, files);
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
    status_t const status = readLineHeader(program, unit, is64, header, files, headerBytes);
    budgets.lineHeaderBytes.settle(headerBytes);
    // A unit whose program has been run for too many others keeps its files.
    return status == status_Ok && !budgets.lineBytes.spend(program.remaining()) ? status_BadDebugInfo : status;
}

} // namespace ORV_3_30
