// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Line programs and file tables, from assembler text.

#include "resolver/orv_debug_sections.h"
#include "support/orv_assembler.h"
#include "support/orv_elf_builder.h"

#include <tuple>

using namespace orv_test;

namespace {

/// What a unit in /dir says of itself: it has a line table, from an offset on.
Attrs unitAttrs(std::string const& name = "a.c", std::string const& offset = "0") {
    return {nameAttr(name), {DW_AT_comp_dir, DW_FORM_string, "/dir"}, {DW_AT_stmt_list, DW_FORM_sec_offset, offset}};
}
DwarfText unitText(std::string const& offset = "0") {
    DwarfText text;
    return text.unit({}, entry(DW_TAG_compile_unit, unitAttrs("a.c", offset)));
}

/// A function that was declared in a file, a line and a column.
std::string function(std::string const& name, int start, int size, int file = 0, int line = 0, int column = 0) {
    Attrs declared = declaredAttrs(file, line);
    declared.push_back({DW_AT_decl_column, DW_FORM_data1, number(column)});
    return entry(DW_TAG_subprogram, functionAttrs(name, start, size, declared));
}

/// The same with functions in it.
DwarfText functionsText(std::string const& functions, std::string const& lines) {
    DwarfText text;
    return text.unit({}, entry(DW_TAG_compile_unit, unitAttrs(), functions))
        .section(".debug_line", lineTable({}, lines));
}

std::string rowsOf(std::string const& lineSection) {
    DwarfText text = unitText();
    text.section(".debug_line", lineSection);
    return PlainDebugInfo(Assembled(text.source()).path()).rows();
}

} // namespace

TEST(DwarfLines, UnitsMayShareAProgram) {
    // A merge at link time leaves many units on one program, and each has its files and lines.
    constexpr int k_units = 20;
    DwarfText text = unitText();
    for (int i = 1; i < k_units; ++i) {
        text.unit({}, entry(DW_TAG_compile_unit, unitAttrs()));
    }
    text.section(".debug_line",
                 lineTable({}, setAddress(0) + k_copyRow + ".rept 4000\n.byte 0x20\n.endr\n" + k_endSequence));
    PlainDebugInfo debug(Assembled(text.source()).path());
    LineIterator lines;
    debug.resolver().sourceLines(lines, ~0ULL, 0, 0, 0, nullptr);
    ASSERT_GT(debug.resolver().sourceFileCount(), 0U);
    debug.resolver().sourceFileById(0)->sourceLines(lines, ~0ULL, nullptr, nullptr);
    int count = 0;
    forEach(lines, [&](ISourceLine&) { ++count; });
    EXPECT_EQ(count, 4001 * k_units);
}

TEST(DwarfLines, RunsEachOpcode) {
    std::string const begin = setAddress(0);
    std::string const next = setAddress(0x10) + k_endSequence; // closes the last stretch at 0x1010
    LineHeader const plain;
    LineHeader fine;
    fine.minimumInstructionLength = 4;
    LineHeader few;
    few.opcodeBase = 10;
    LineHeader many;
    many.opcodeBase = 15;
    LineHeader flat;
    flat.lineRange = 0;
    using Case = std::tuple<char const*, LineHeader, std::string, char const*>;
    for (auto const& [what, header, program, rows] : std::vector<Case>{
             {"special of 4 bytes", fine, begin + ".byte 13 + 14 * 3 + 7\n" + next, "100c+4 /dir/a.c:3:0"},
             {"special without a range", flat, begin + ".byte 3, 9\n.byte 200\n" + next, "1000+10 /dir/a.c:5:0"},
             {"advance_pc of 4 bytes", fine, begin + ".byte 2\n.uleb128 3\n" + k_copyRow + next, "100c+4 /dir/a.c:1:0"},
             {"high lines", plain, begin + ".byte 3\n.sleb128 39999\n.byte 13 + 6\n" + next,
              "1000+10 /dir/a.c:40001:0"},
             {"lines that wrap round", plain,
              begin + ".byte 3\n.sleb128 0x7fffffffffffffff\n.byte 13 + 6\n.byte 3\n.sleb128 6\n" + k_copyRow + next,
              "1000+0 /dir/a.c:1:0 1000+10 /dir/a.c:7:0"},
             {"set_file, to absolute directories and names too, to file 0 and one beyond the table", plain,
              begin + ".byte 4, 2, 1, 2, 4, 4, 3, 1, 2, 4, 4, 4, 1, 2, 4, 4, 0, 1, 2, 2, 4, 5, 1\n" + next,
              "1000+4 /dir/inc/b.h:1:0 1004+4 /abs/c.h:1:0 1008+4 /d/e.h:1:0"},
             {"const_add_pc of 4 bytes", fine, begin + ".byte 8\n" + k_copyRow + setAddress(0x20) + k_endSequence,
              "1011+f /dir/a.c:1:0"},
             {"fixed_advance_pc, down", plain,
              setAddress(8) + k_copyRow + ".byte 9\n.2byte 0xffff\n" + k_copyRow + next, "1007+9 /dir/a.c:1:0"},
             {"negate_stmt, basic_block, prologue_end, epilogue_begin, isa", plain,
              begin + ".byte 6, 7, 10, 11, 12\n.uleb128 300\n" + k_copyRow + next, "1000+10 /dir/a.c:1:0"},
             {"opcode_base 10", few, begin + ".byte 10\n" + next, "1000+10 /dir/a.c:4294967292:0"},
             {"opcode 13 below the base", many, begin + ".byte 13\n" + k_copyRow + next, "1000+10 /dir/a.c:1:0"},
             {"discriminator", plain, begin + ".byte 0, 2, 4, 7\n" + k_copyRow + ".byte 2, 4\n" + k_copyRow + next,
              "1000+4 /dir/a.c:1:0.7 1004+c /dir/a.c:1:0"},
             {"define_file", plain,
              begin + ".byte 0, 8, 3\n.asciz \"n.h\"\n.byte 0, 0, 0\n.byte 4, 5\n" + k_copyRow + next,
              "1000+10 /dir/n.h:1:0"},
             {"unknown extended opcode", plain, begin + ".byte 0, 4, 0x80, 1, 2, 3\n" + k_copyRow + next,
              "1000+10 /dir/a.c:1:0"},
             {"rows of no size", plain, begin + k_copyRow + ".byte 3, 1\n" + k_copyRow + next,
              "1000+0 /dir/a.c:1:0 1000+10 /dir/a.c:2:0"},
             {"two sequences", plain,
              begin + ".byte 5\n.uleb128 300\n" + k_copyRow + setAddress(4) + k_endSequence + setAddress(0x20) +
                  k_copyRow + setAddress(0x24) + k_endSequence,
              "1000+4 /dir/a.c:1:300 1020+4 /dir/a.c:1:0"},
             {"backwards", plain,
              setAddress(0x40) + k_copyRow + setAddress(0x20) + k_copyRow + setAddress(0x30) + k_endSequence,
              "1020+10 /dir/a.c:1:0"},
             {"no code there", plain,
              ".byte 0, 9, 2\n.8byte 0x900000\n" + std::string(k_copyRow) + ".byte 2, 4\n" + k_endSequence, ""},
             {"no end", plain, begin + k_copyRow + setAddress(4) + k_copyRow, "1000+4 /dir/a.c:1:0"},
         }) {
        EXPECT_EQ(rowsOf(lineTable(header, program)), rows) << what;
    }
}

TEST(DwarfLines, ReadsHeadersOfEveryVersion) {
    std::string const program = setAddress(0) + k_copyRow + setAddress(4) + k_endSequence;
    for (unsigned int const version : {0U, 1U, 2U, 3U, 4U}) {
        for (bool const is64 : {false, true}) {
            LineHeader header;
            header.version = version;
            header.is64 = is64;
            EXPECT_EQ(rowsOf(lineTable(header, program)), "1000+4 /dir/a.c:1:0") << "version " << version;
        }
    }
    struct Row {
        char const* assertion;
        void (*edit)(LineHeader&);
        status_t status;
        char const* rows;
    };
    for (auto const& [assertion, edit, status, rows] : {
             Row{"1 <= minimumInstructionLength", [](LineHeader& h) { h.minimumInstructionLength = 0; }, status_Ok,
                 "1000+4 /dir/a.c:1:0"},
             Row{"minimumInstructionLength <= 4", [](LineHeader& h) { h.minimumInstructionLength = 5; }, status_Ok,
                 "1000+4 /dir/a.c:1:0"},
             Row{"defaultIsStmt < 2", [](LineHeader& h) { h.defaultIsStmt = 2; }, status_Ok, "1000+4 /dir/a.c:1:0"},
             Row{"incDirectory", [](LineHeader& h) { h.directories.clear(); }, status_Ok, "1000+4 /dir/a.c:1:0"},
             Row{nullptr, [](LineHeader& h) { h.version = 5; }, status_UnsupportedFileVersion, ""},
         }) {
        LineHeader header;
        edit(header);
        DwarfText text = unitText();
        text.section(".debug_line", lineTable(header, program));
        Assembled const module(text.source());
        PlainDebugInfo debug(module.path());
        LogCapture const log(10000);
        EXPECT_EQ(debug.rows(), rows) << (assertion != nullptr ? assertion : "version 5");
        EXPECT_EQ(debug.linesStatus, status);
        EXPECT_EQ(log.count("Line info version: "), 1U);
        if (assertion != nullptr) {
            EXPECT_GE(log.count(std::string("ASSERTION FAILED: '") + assertion + "'"), 1U);
        }
    }
}

TEST(DwarfLines, StatusOfUnitsWithoutAProgram) {
    using Row = std::tuple<char const*, char const*, status_t>;
    for (auto const& [offset, section, status] : {
             Row{"0x7fffffff", ".byte 1\n", status_BadDebugInfo},
             Row{"1", ".byte 1\n", status_BadDebugInfo},
             Row{"0", ".byte 1\n", status_Ok}, // as good as empty
             Row{"0", nullptr, status_NoDebugInfo},
         }) {
        DwarfText text = unitText(offset);
        if (section != nullptr) {
            text.section(".debug_line", section);
        }
        Assembled const module(text.source());
        if (section == nullptr) {
            module.edit("objcopy -R .debug_line"); // the assembler writes one by itself
        }
        PlainDebugInfo debug(module.path());
        EXPECT_EQ(debug.rows(), "");
        EXPECT_EQ(debug.linesStatus, status) << offset;
        EXPECT_EQ(debug.rows(), ""); // the second question gets the same answer
        EXPECT_EQ(debug.linesStatus, status) << offset;
    }
}

TEST(DwarfLines, UnitsShareFiles) {
    DwarfText text = unitText("0");
    text.unit({}, entry(DW_TAG_compile_unit, unitAttrs("b.h", ".Lsecond")));
    LineHeader reversed;
    reversed.files = ".asciz \"b.h\"\n.byte 1, 0, 0\n.asciz \"a.c\"\n.byte 0, 0, 0\n";
    text.section(".debug_line",
                 lineTable({}, setAddress(0) + k_copyRow + setAddress(4) + k_endSequence) + ".Lsecond:\n" +
                     lineTable(reversed, setAddress(8) + ".byte 4, 2\n" + k_copyRow + setAddress(12) + k_endSequence));
    Assembled const module(text.source());
    PlainDebugInfo debug(module.path());
    EXPECT_EQ(debug.rows(), "1000+4 /dir/a.c:1:0 1008+4 /dir/a.c:1:0");
    ISrcLineResolver& resolver = debug.resolver();
    EXPECT_EQ(resolver.sourceFileCount(), 4U);
    EXPECT_EQ(resolver.sourceFileById(4), nullptr);
    EXPECT_EQ(resolver.compUnitDetailsById(1), nullptr);
    ICompUnitDetails* const unit = resolver.compUnitDetailsById(0);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(unit->mainSourceFile(), resolver.sourceFileById(0));
    EXPECT_EQ(unit->sourceFileByName("/dir/inc/b.h"), resolver.sourceFileById(1));
    EXPECT_EQ(unit->sourceFileByName("b.h"), nullptr);
    EXPECT_EQ(unit->sourceFileByName(nullptr), nullptr);
    EXPECT_EQ(resolver.sourceFileById(1)->modificationTime(), 300U);
    EXPECT_EQ(resolver.sourceFileById(1)->length(), 70000U);
    constexpr unsigned long long second = 25; // where the first unit ends
    ASSERT_NE(resolver.compUnitDetailsById(second), nullptr);
    EXPECT_EQ(resolver.compUnitDetailsById(second)->mainSourceFile(), resolver.sourceFileById(1));
    EXPECT_EQ(debug.rows(second), "1008+4 /dir/a.c:1:0");
}

TEST(DwarfLines, OfASymbol) {
    DwarfText const text =
        functionsText(function("f", 0, 0x40, 1, 5, 7) + function("g", 0x40, 0x40, 9, 5),
                      setAddress(0) + ".byte 3, 9\n" + k_copyRow + setAddress(0x10) + ".byte 4, 2\n" + k_copyRow +
                          setAddress(0x20) + ".byte 4, 1\n" + k_copyRow + setAddress(0x40) + ".byte 4, 2\n" +
                          k_copyRow + setAddress(0x60) + k_endSequence);
    Assembled const module(text.source());
    auto const bank = bankOf(module.path());
    EXPECT_TRUE(placeIn(*bank, 0x105f)); // a first question for a line loads by itself
    EXPECT_FALSE(placeIn(*bank, 0x1060));
    auto const linesOf = [](ISymbol& symbol) {
        LineIterator lines;
        std::ostringstream found;
        symbol.sourceLines(lines);
        forEach(lines,
                [&](ISourceLine& line) { found << std::hex << line.relativeAddress() << '+' << line.size() << ' '; });
        return found.str();
    };
    SymMgrObjectPtr<ISymbolRange> range = rangeIn(*bank, 0x1018, symbol_kind_Function);
    EXPECT_EQ(linesOf(*range->symbol()), "1000+10 1020+20 "); // those of the file where it was declared
    SymMgrObjectPtr<ISourceLine> line;
    ASSERT_EQ(range->symbol()->sourceLine(line), status_Ok);
    EXPECT_STREQ(line->location()->sourceFile()->path(), "/dir/a.c");
    EXPECT_EQ(line->location()->line(), 5U);
    EXPECT_EQ(line->location()->column(), 7U);
    range->symbol()->sourceLineByAddress(line, addressIn(*bank, 0x1018).get());
    EXPECT_EQ(line->location()->line(), 10U);

    range = rangeIn(*bank, 0x1048, symbol_kind_Function);
    EXPECT_EQ(range->symbol()->sourceLine(line), status_False); // no file of that number
    EXPECT_EQ(linesOf(*range->symbol()), "1040+20 ");           // those of the file at its address
}

TEST(DwarfLines, ChoosersSeeWhatTheShortWayTakes) {
    // Overlapping functions and rows, each of a line of its own, in pairs of one start: of all that a chooser sees the
    // one is taken that starts last, of several such the first.
    std::string entries;
    std::ostringstream program;
    auto const startOf = [](unsigned int row) { return row / 2 * 29 % 190; };
    for (unsigned int i = 0; i < 40; ++i) {
        int const n = static_cast<int>(i);
        entries += function("f" + number(n), n * 37 % 200, n * 13 % 90, n % 5, 1);
        program << setAddress(startOf(i)) << ".byte 4, " << 1 + i % 4 << "\n.byte 3, " << i << "\n"
                << k_copyRow << setAddress(startOf(i) + i * 7 % 60) << k_endSequence;
    }
    Assembled const module(functionsText(entries, program.str()).source());
    auto const bank = bankOf(module.path());
    class Collector final : public ISourceLocationChooser {
    public:
        status_t choose(SymMgrObjectPtr<ISourceLocation>& out,
                        IIterator<SymMgrObjectPtr<ISourceLocation>>& candidates) override {
            for (auto place = candidates.current(); place; place = candidates.current()) {
                lines.push_back(place->line());
                candidates.next();
            }
            out = nullptr;
            return status_Ok;
        }
        std::vector<unsigned int> lines;
    };
    int several = 0;
    for (unsigned long long address = 0x1000; address < 0x1110; ++address) {
        auto const chosen = placeIn(*bank, address);
        SymMgrObjectPtr<ISourceLocation> none;
        Collector chooser;
        bank->sourceLocationByAddress(addressIn(*bank, address).get(), none, ~0ULL, &chooser);
        several += chooser.lines.size() > 1 ? 1 : 0;
        unsigned int expected = 0;
        for (unsigned int const line : chooser.lines) {
            expected = expected == 0 || startOf(line - 1) > startOf(expected - 1) ? line : expected;
        }
        EXPECT_EQ(chosen ? chosen->line() : 0, expected) << std::hex << address;
    }
    EXPECT_GT(several, 50);
}

TEST(DwarfLines, OfACompanionMoveToTheModule) {
    // Where code is, the companion says; the module has its own 0x500000 further on.
    Assembled const companion(
        functionsText(function("f", 0, 0x40), setAddress(0) + k_copyRow + setAddress(4) + k_endSequence).source());
    constexpr unsigned long long k_distance = 0x500000;
    std::string link("c.debug", 8);
    ElfBuilder::put(link, fileCrc(companion.path().c_str()), 4);
    ElfBuilder elf;
    elf.load(PF_R | PF_X, loaderOf(companion.path())->preferredLoadAddress() + k_distance, 0x3000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000 + k_distance, std::string(0x1000, 'x'));
    elf.section(".gnu_debuglink", SHT_PROGBITS, 0, 0, link);
    TempDir const dir;
    std::string const path = dir.file("module", elf.bytes());
    std::filesystem::copy(companion.path(), dir.path() + "/c.debug");
    auto const bank = bankOf(path);
    EXPECT_EQ(symbolAt(*bank, 0x1000 + k_distance, symbol_kind_Function), "f@501000+64");
    auto const place = placeIn(*bank, 0x1003 + k_distance);
    ASSERT_TRUE(place);
    EXPECT_STREQ(place->sourceFile()->path(), "/dir/a.c");
}

TEST(DwarfLines, SkipsSymbolsOnDemand) {
    DwarfText const text =
        functionsText(function("f", 0, 0x40), setAddress(0) + k_copyRow + setAddress(4) + k_endSequence);
    Assembled const module(text.source());
    ::setenv("ORV_SKIP_DWARF_SYMBOLS", "1", 1);
    EXPECT_EQ(dwarfSymbols(module.path()), "");
    EXPECT_EQ(PlainDebugInfo(module.path()).rows(), "1000+4 /dir/a.c:1:0");
    ::unsetenv("ORV_SKIP_DWARF_SYMBOLS");
    EXPECT_EQ(dwarfSymbols(module.path()), "f[1000,1040)l");
}
