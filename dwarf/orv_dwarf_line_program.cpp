// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The line number state machine (DWARF version 4, 6.2): opcodes by a switch, rows by sequence.
#include "dwarf/orv_dwarf_line_program.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_constants.h"
#include "dwarf/orv_dwarf_line_resolver.h"
#include "dwarf/orv_dwarf_unit.h"
#include "format/orv_ffl.h"

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

// --- One unit's run

namespace {

/// The file table of a unit, as the program and its header fill it.
class UnitFiles {
public:
    UnitFiles(DWARFCompilationUnit& unit, DWARFLineResolver& resolver) : m_unit(unit), m_resolver(resolver) {}

    void addDirectory(std::string_view directory) { m_directories.push_back({directory, k_unknown}); }
    void add(LineFileEntry const& entry) {
        m_unit.sourceFileIds().push_back(
            m_resolver.addFileIn(directoryOf(entry), entry.name, entry.modificationTime, entry.length));
    }

private:
    static constexpr std::uint32_t k_unknown = ~std::uint32_t{0};
    struct Directory {
        std::string_view text;
        std::uint32_t number;
    };

    /// The number of the directory that an entry's name is to be joined with.
    std::uint32_t directoryOf(LineFileEntry const& entry) {
        if (!entry.name.empty() && entry.name.front() == '/') {
            return m_resolver.addDirectory("");
        }
        if (entry.directory == 0) {
            return numberOf(m_compilation, m_unit.compDir());
        }
        if (!ORV_ASSERT(entry.directory <= m_directories.size(), "incDirectory")) {
            return m_resolver.addDirectory("");
        }
        Directory& directory = m_directories[entry.directory - 1];
        if (directory.number == k_unknown) {
            std::string const name = fullName(directory.text);
            bool const isAffordable = m_unit.loader()->spendTextBytes(name.size());
            directory.number = m_resolver.addDirectory(isAffordable ? name : std::string());
        }
        return directory.number;
    }
    std::string fullName(std::string_view directory) const {
        std::string full = m_unit.compDir();
        if (!directory.empty() && directory.front() == '/') {
            full.clear();
        } else if (!full.empty() && full.back() != '/') {
            full += '/';
        }
        full += directory;
        return full;
    }
    std::uint32_t numberOf(std::uint32_t& known, char const* directory) {
        if (known == k_unknown) {
            known = m_resolver.addDirectory(directory);
        }
        return known;
    }

    DWARFCompilationUnit& m_unit;
    DWARFLineResolver& m_resolver;
    std::vector<Directory> m_directories;
    std::uint32_t m_compilation = k_unknown;
};

/// Makes table entries of rows: an entry is the stretch from one row to the next.
class Stretches {
public:
    Stretches(DWARFCompilationUnit& unit, LineTable& table, IFileFormatHelper& helper, RangeFilter* filter)
        : m_unit(unit), m_table(table), m_helper(helper), m_filter(filter), m_bias(unit.forms().loadBias) {}

    void add(LineState const& row) {
        if (m_hasPrevious && row.address >= m_previous.address) {
            close(row.address);
        }
        m_hasPrevious = !row.endSequence;
        if (m_hasPrevious) {
            m_previous = static_cast<LineRow const&>(row);
        }
    }

private:
    void close(std::uint64_t end) {
        std::uint64_t const start = m_previous.address + m_bias;
        std::uint64_t const size = end - m_previous.address;
        if (m_filter != nullptr && !m_filter->holds(start, start + size)) {
            return;
        }
        std::vector<int> const& ids = m_unit.sourceFileIds();
        if (m_previous.file == 0 || m_previous.file > ids.size() || ids[m_previous.file - 1] < 0) {
            return;
        }
        if (!m_helper.isLoadedAddress(m_previous.address)) {
            return;
        }
        m_table.addLine(m_unit.header().offset, static_cast<unsigned int>(ids[m_previous.file - 1]),
                        static_cast<unsigned int>(m_previous.line), static_cast<unsigned int>(m_previous.column), start,
                        size, m_previous.discriminator);
    }

    DWARFCompilationUnit& m_unit;
    LineTable& m_table;
    IFileFormatHelper& m_helper;
    RangeFilter* m_filter;
    std::uint64_t m_bias;
    LineRow m_previous;
    bool m_hasPrevious = false;
};

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
status_t readLineHeader(DwarfWalker& walker, bool is64, LineHeader& header, UnitFiles& files,
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
        files.add(entry);
    }
    bytesRead = walker.offset() - begin;
    walker.seek(program);
    return status_Ok;
}

} // namespace

status_t DWARFCompilationUnit::runLineProgramOnce(RangeFilter* filter) {
    DWARFLineResolver* const resolver = m_loader->lineResolver();
    DwarfWalker walker = m_loader->lineWalker(m_forms.addrSize);
    if (!m_hasLineInfo || resolver == nullptr || !m_loader->hasDebugLine()) {
        return status_NoDebugInfo;
    }
    if (m_lineOffset >= walker.size() || !m_loader->canReadLineHeader()) {
        return status_BadDebugInfo;
    }
    walker.seek(m_lineOffset);
    bool const is64 = enterLineUnit(walker);
    LineHeader header;
    UnitFiles files(*this, *resolver);
    std::uint64_t headerBytes = 0;
    status_t const status = readLineHeader(walker, is64, header, files, headerBytes);
    m_loader->spendLineHeader(headerBytes);
    if (status != status_Ok) {
        return status;
    }
    // A unit whose program has been run for too many others keeps its files.
    if (!m_loader->spendLineBytes(walker.remaining())) {
        return status_BadDebugInfo;
    }
    LineMachine machine(walker, header);
    Stretches stretches(*this, resolver->table(), *m_loader->fileFormatHelper(), filter);
    auto const defineFile = [&](LineFileEntry const& entry) {
        ORV_ASSERT(!entry.name.empty(), "fileName && strlen(fileName) > 0");
        files.add(entry);
    };
    machine.run([&](LineState const& row) { stretches.add(row); }, defineFile);
    return status_Ok;
}

} // namespace ORV_3_30
