// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the modern reading adds: DWARF 5, definitions wherever they stand, names, what a linker has dropped.

#include "support/orv_assembler.h"
#include "support/orv_modern.h"

#include <algorithm>

using namespace orv_test;

namespace {

using Unit = DwarfText::Unit;

constexpr auto k_functions = symbol_kind_Function;
constexpr auto k_data = symbol_kind_Data;
Unit const k_later{5};

/// An attribute whose value is said with its directives.
Attr said(unsigned int name, unsigned int form, std::string const& value) { return {name, form, value, true}; }

std::string function(std::string const& name, int start, int size, std::string const& children = "") {
    Attrs const attrs = functionAttrs(name, start, size);
    return children.empty() ? entry(DW_TAG_subprogram, attrs) : entry(DW_TAG_subprogram, attrs, children);
}

std::string named(unsigned int tag, std::string const& name, std::string const& children) {
    return entry(tag, name.empty() ? Attrs() : Attrs{nameAttr(name)}, children);
}

/// A unit of C++ with these entries.
std::string unitOf(std::string const& entries, Attrs more = {}) {
    more.insert(more.begin(), {nameAttr("a.cpp"), {DW_AT_language, DW_FORM_data1, number(DW_LANG_C_plus_plus_14)}});
    return entry(DW_TAG_compile_unit, more, entries);
}

std::string symbolsOf(DwarfText const& text, symbol_kind_t mask = k_functions) {
    return dwarfSymbols(Assembled(text.source()).path(), mask);
}

/// The tables that indices lead to; the unit names their beginnings.
Attrs const k_bases = {said(DW_AT_str_offsets_base, DW_FORM_sec_offset, ".4byte .Lstrings - .Loffsets"),
                       said(DW_AT_addr_base, DW_FORM_sec_offset, ".4byte .Laddresses - .Laddr"),
                       said(DW_AT_rnglists_base, DW_FORM_sec_offset, ".4byte .Llists - .Lrnglists")};

void addTables(DwarfText& text, std::string const& lists = "") {
    text.section(".debug_str", ".asciz \"zero\"\n.asciz \"one\"\n")
        .section(".debug_line_str", ".asciz \"x\"\n.asciz \"line\"\n")
        .section(".debug_str_offsets", ".Loffsets: .8byte 0, 0\n.4byte 12\n.2byte 5, 0\n.Lstrings: .4byte 0, 5\n")
        .section(".debug_addr", ".Laddr: .8byte 0\n.4byte 36\n.2byte 5\n.byte 8, 0\n"
                                ".Laddresses: .8byte code, code + 0x10, code + 0x20, -1\n")
        .section(".debug_rnglists", ".Lrnglists: .4byte 9f - 8f\n8: .2byte 5\n.byte 8, 0\n.4byte 2\n"
                                    ".Llists: .4byte .Lfirst - .Llists, .Lsecond - .Llists\n" +
                                        lists + "9:\n");
}

} // namespace

TEST(Later, IndicesLeadToNamesAndAddresses) {
    Reading const modern(reading_Modern);
    struct Row {
        Attr name;
        Attr low;
        char const* symbols;
    };
    Attr const nought = said(DW_AT_low_pc, DW_FORM_addrx, ".uleb128 0");
    Attr const plain = nameAttr("f");
    for (auto const& [name, low, symbols] : {
             Row{said(DW_AT_name, DW_FORM_strx, ".uleb128 1"), nought, "one[1000,1004)l"},
             Row{said(DW_AT_name, DW_FORM_strx1, ".byte 1"), nought, "one[1000,1004)l"},
             Row{said(DW_AT_name, DW_FORM_strx2, ".2byte 0"), nought, "zero[1000,1004)l"},
             Row{said(DW_AT_name, DW_FORM_strx3, ".byte 1, 0, 0"), nought, "one[1000,1004)l"},
             Row{said(DW_AT_name, DW_FORM_strx4, ".4byte 1"), nought, "one[1000,1004)l"},
             Row{said(DW_AT_name, DW_FORM_line_strp, ".4byte 2"), nought, "line[1000,1004)l"},
             Row{plain, said(DW_AT_low_pc, DW_FORM_addrx1, ".byte 1"), "f[1010,1014)l"},
             Row{plain, said(DW_AT_low_pc, DW_FORM_addrx2, ".2byte 2"), "f[1020,1024)l"},
             Row{plain, said(DW_AT_low_pc, DW_FORM_addrx3, ".byte 1, 0, 0"), "f[1010,1014)l"},
             Row{plain, said(DW_AT_low_pc, DW_FORM_addrx4, ".4byte 2"), "f[1020,1024)l"},
             // Of an index past the end there is nothing: no name, and an address where no code is.
             Row{said(DW_AT_name, DW_FORM_strx, ".uleb128 2"), nought, ""},
             Row{said(DW_AT_name, DW_FORM_strx, ".uleb128 0xffffffffffffffff"), nought, ""},
             Row{said(DW_AT_name, DW_FORM_line_strp, ".4byte 0x7fffffff"), nought, ""},
             Row{plain, said(DW_AT_low_pc, DW_FORM_addrx, ".uleb128 4"), ""},
             Row{plain, said(DW_AT_low_pc, DW_FORM_addrx, ".uleb128 0x2000000000000000"), ""},
             Row{plain, said(DW_AT_low_pc, DW_FORM_addrx, ".uleb128 3"), ""}, // dropped
         }) {
        Attr const wide = said(DW_AT_decl_line, DW_FORM_data16, ".8byte 1, 2"); // is passed over
        Attr const high = {DW_AT_high_pc, DW_FORM_data1, "4"};
        DwarfText text;
        text.unit(k_later, unitOf(entry(DW_TAG_subprogram, {wide, name, low, high}), k_bases));
        addTables(text, ".Lfirst: .Lsecond:\n");
        EXPECT_EQ(symbolsOf(text), symbols) << "name " << name.form << " " << name.value << ", low " << low.value;
    }
}

TEST(Later, RangeListsOfEveryKind) {
    Reading const modern(reading_Modern);
    std::string const lists = ".Lfirst: .byte 1\n.uleb128 1\n.byte 4\n.uleb128 0, 4\n" // from address 1
                              ".byte 2\n.uleb128 0, 1\n"                               // from address 0 to 1
                              ".byte 3\n.uleb128 2\n.uleb128 8\n"                      // 8 from address 2
                              ".byte 4\n.uleb128 9, 9\n"                               // nothing
                              ".byte 0\n"
                              ".Lsecond: .byte 5\n.8byte code + 0x100\n.byte 4\n.uleb128 0x10, 0x18\n"
                              ".byte 6\n.8byte code + 0x200, code + 0x204\n"
                              ".byte 7\n.8byte code + 0x300\n.uleb128 5\n"
                              ".byte 1\n.uleb128 3\n.byte 4\n.uleb128 0x10, 0x20\n" // from a base that is gone
                              ".byte 99\n";                                         // an unknown kind ends the list
    auto const listed = [](std::string const& name, unsigned int form, std::string const& value) {
        return entry(DW_TAG_subprogram, {nameAttr(name), said(DW_AT_ranges, form, value)});
    };
    DwarfText text;
    text.unit(k_later, unitOf(listed("a", DW_FORM_rnglistx, ".uleb128 0") +
                                  listed("b", DW_FORM_sec_offset, ".4byte .Lsecond - .Lrnglists") +
                                  listed("c", DW_FORM_rnglistx, ".uleb128 2") +
                                  listed("d", DW_FORM_rnglistx, ".uleb128 0x4000000000000001"),
                              k_bases));
    addTables(text, lists);
    EXPECT_EQ(symbolsOf(text), "a[1000,1010)l a[1010,1014)l a[1020,1028)l b[1110,1118)l b[1200,1204)l b[1300,1305)l");
}

TEST(Later, UnitsOfEveryType) {
    Reading const modern(reading_Modern);
    constexpr char const* k_id = ".8byte 0x1122334455667788\n";
    constexpr char const* k_typeOf = ".8byte 0x1122334455667788\n.4byte 0\n";
    constexpr char const* k_wideTypeOf = ".8byte 0x1122334455667788\n.8byte 0\n";
    DwarfText text;
    text.unit({5, 8, false, DW_UT_type, k_typeOf}, entry(DW_TAG_type_unit, {nameAttr("t")}, function("t", 0, 4)))
        .unit({5, 8, true}, unitOf(function("wide", 0x10, 4)))
        .unit({5, 8, false, DW_UT_skeleton, k_id}, unitOf(function("skeleton", 0x20, 4)))
        .unit({5, 8, true, DW_UT_split_type, k_wideTypeOf}, entry(DW_TAG_type_unit, {}))
        .unit({4, 8, false}, unitOf(function("earlier", 0x30, 4)))
        .unit({5, 8, false, DW_UT_compile}, unitOf(function("last", 0x40, 4)));
    EXPECT_EQ(symbolsOf(text), "wide[1010,1014)l skeleton[1020,1024)l earlier[1030,1034)l last[1040,1044)l");
    DwarfText further;
    further.unit(k_later, unitOf(function("f", 0, 4))).unit({6}, unitOf(function("g", 0x10, 4)));
    status_t status = status_Ok;
    dwarfSymbols(Assembled(further.source()).path(), k_functions, &status);
    EXPECT_EQ(status, status_UnsupportedFileVersion);
}

TEST(Later, ConstantsStandInAbbreviations) {
    Reading const modern(reading_Modern);
    DwarfText text;
    text.abbrevText(
            ".uleb128 9, 0x2e\n.byte 0\n.uleb128 3, 8\n.uleb128 0x12, 0x21\n.sleb128 6\n.uleb128 0x11, 1, 0, 0\n")
        .unit(k_later, unitOf(".uleb128 9\n.asciz \"f\"\n.8byte code\n.uleb128 9\n.asciz \"g\"\n.8byte code + 16\n"));
    EXPECT_EQ(symbolsOf(text), "f[1000,1006)l g[1010,1016)l");
}

namespace {

/// The front of a line table of version 5, up to the length of what follows; lists: its directories and files.
std::string laterTable(std::string const& lists, std::string const& program) {
    return ".4byte 94f - 91f\n91: .2byte 5\n.byte 8, 0\n.4byte 93f - 92f\n92: .byte 1, 1, 1, -5, 14, 13\n"
           ".byte 0, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0, 1\n" +
           lists + "93:\n" + program + "94:\n";
}

std::string rowsOf(std::string const& lists, std::string const& program) {
    DwarfText text;
    text.unit(k_later,
              unitOf("", {{DW_AT_comp_dir, DW_FORM_string, "/dir"}, {DW_AT_stmt_list, DW_FORM_sec_offset, "0"}}))
        .section(".debug_line", laterTable(lists, program))
        .section(".debug_line_str", ".asciz \"/dir\"\n.asciz \"inc\"\n.asciz \"b.h\"\n");
    return PlainDebugInfo(Assembled(text.source()).path()).rows();
}

} // namespace

TEST(Later, LineTables) {
    Reading const modern(reading_Modern);
    std::string const program =
        setAddress(0) + ".byte 4, 0, 1\n" + setAddress(4) + ".byte 4, 1, 1\n" + setAddress(8) + k_endSequence;
    // Directories: path as text. Files: path in .debug_line_str, directory, MD5, and something unknown.
    std::string const plain = ".byte 1\n.uleb128 1, 8\n.uleb128 2\n.asciz \"/dir\"\n.asciz \"inc\"\n";
    std::string const files = ".byte 4\n.uleb128 1, 0x1f, 2, 0xb, 5, 0x1e, 0x2001, 0xa\n.uleb128 2\n"
                              ".4byte 9\n.byte 0\n.8byte 1, 2\n.byte 2, 7, 7\n"
                              ".4byte 9\n.byte 1\n.8byte 3, 4\n.byte 0\n";
    EXPECT_EQ(rowsOf(plain + files, program), "1000+4 /dir/b.h:1:0 1004+4 /dir/inc/b.h:1:0");
    struct Row {
        char const* what;
        std::string lists;
        char const* rows;
    };
    for (auto const& [what, lists, rows] : {
             Row{"no directory", ".byte 0, 0\n.byte 1\n.uleb128 1, 8\n.uleb128 1\n.asciz \"/a.c\"\n",
                 "1000+4 /a.c:1:0"},
             Row{"a directory that is not there",
                 plain + ".byte 2\n.uleb128 1, 8, 2, 0xf\n.uleb128 1\n.asciz \"a.c\"\n.uleb128 70000\n",
                 "1000+4 a.c:1:0"},
             Row{"a form that is refused", plain + ".byte 1\n.uleb128 1, 2\n.uleb128 1\n.asciz \"a.c\"\n", ""},
             Row{"files without bytes", plain + ".byte 0\n.uleb128 0xfffffffffffffff\n", ""},
             Row{"more files than bytes", plain + ".byte 1\n.uleb128 1, 8\n.uleb128 0xffffffffffffff\n.asciz \"a.c\"\n",
                 "1000+4 /dir/a.c:1:0"},
         }) {
        EXPECT_EQ(rowsOf(lists, program), rows) << what;
    }
}

TEST(Later, OpcodesAreWhatTheFormatSays) {
    // The classic reading takes some of them otherwise.
    Reading const modern(reading_Modern);
    LineHeader header;
    header.version = 4;
    header.minimumInstructionLength = 4;
    header.opcodeBase = 15;
    std::string const program = setAddress(0) + ".byte 8\n" + k_copyRow + // const_add_pc: 17 instructions
                                ".byte 9\n.2byte 0x9000\n" + k_copyRow +  // fixed_advance_pc
                                ".byte 14\n.uleb128 70000\n" +            // one of a later version, with its operand
                                ".byte 9\n.2byte 4\n" + k_endSequence;
    DwarfText text;
    text.unit({}, entry(DW_TAG_compile_unit, {nameAttr("a.c"), {DW_AT_stmt_list, DW_FORM_sec_offset, "0"}}))
        .section(".debug_line", lineTable(header, program));
    EXPECT_EQ(PlainDebugInfo(Assembled(text.source()).path()).rows(), "1044+9000 a.c:1:0");
}

TEST(Later, DefinitionsWhereverTheyStand) {
    std::string const blocks =
        entry(DW_TAG_lexical_block, {}, named(DW_TAG_structure_type, "", function("call", 0x40, 4)));
    std::string const declared =
        ".Ldeclared: " + entry(DW_TAG_subprogram, {nameAttr("late"), {DW_AT_declaration, DW_FORM_flag, "1"}});
    std::string const where = "."
                              "Ldeclared - .Linfo";
    std::string const entries =
        named(DW_TAG_namespace, "a",
              function("f", 0, 4) + named(DW_TAG_namespace, "", function("hidden", 0x10, 4)) +
                  named(DW_TAG_class_type, "C", declared + function("m", 0x20, 4)) +
                  function("outer", 0x30, 8, function("inner", 0x38, 4) + blocks) +
                  entry(DW_TAG_subprogram, {nameAttr("linked"),
                                            {DW_AT_linkage_name, DW_FORM_string, "_ZN1a6linkedEv"},
                                            lowAttr(0x60),
                                            {DW_AT_high_pc, DW_FORM_data1, "4"}})) +
        named(DW_TAG_union_type, "U", function("u", 0x50, 4)) +
        entry(DW_TAG_subprogram,
              {{DW_AT_specification, DW_FORM_ref_addr, where}, lowAttr(0x70), {DW_AT_high_pc, DW_FORM_data1, "8"}},
              named(DW_TAG_structure_type, "Local", function("deep", 0x78, 4))) +
        function("plain", 0x80, 4);
    DwarfText text;
    text.unit({}, unitOf(entries));
    Assembled const module(text.source());
    EXPECT_EQ(dwarfSymbols(module.path(), k_functions), "late[1070,1078)l plain[1080,1084)l");
    Reading const modern(reading_Modern);
    EXPECT_EQ(
        dwarfSymbols(module.path(), k_functions),
        "a::f[1000,1004)l a::(anonymous namespace)::hidden[1010,1014)l a::C::m[1020,1024)l a::outer[1030,1038)l "
        "a::outer::inner[1038,103c)l a::outer::(anonymous struct)::call[1040,1044)l U::u[1050,1054)l "
        "_ZN1a6linkedEv[1060,1064)l a::C::late[1070,1078)l a::C::late::Local::deep[1078,107c)l plain[1080,1084)l");
    // C has one kind of names.
    DwarfText plain;
    plain.unit({}, entry(DW_TAG_compile_unit, {{DW_AT_language, DW_FORM_data1, number(DW_LANG_C11)}},
                         function("outer", 0, 8, function("inner", 8, 4))));
    EXPECT_EQ(symbolsOf(plain), "outer[1000,1008)l inner[1008,100c)l");
}

TEST(Later, VariablesWhereverTheyStand) {
    Reading const modern(reading_Modern);
    auto const variable = [](std::string const& name, int offset) {
        return entry(DW_TAG_variable, {nameAttr(name), said(DW_AT_location, DW_FORM_exprloc,
                                                            ".uleb128 9\n.byte 3\n.8byte code + " + number(offset))});
    };
    std::string const local =
        entry(DW_TAG_variable, {nameAttr("l"), {DW_AT_location, DW_FORM_exprloc, ".byte 0x91, 0"}});
    DwarfText text;
    text.unit({}, unitOf(named(DW_TAG_namespace, "a", variable("v", 8)) +
                         function("f", 0, 4,
                                  local + variable("kept", 16) +
                                      entry(DW_TAG_inlined_subroutine, {}, variable("again", 16)))));
    EXPECT_EQ(symbolsOf(text, k_data), "a::v[1008,1008)l f::kept[1010,1010)l");
}

TEST(Later, NamesNestWithoutEnd) {
    Reading const modern(reading_Modern);
    constexpr int k_deep = 3000;
    std::string text = function("f", 0, 4);
    std::string begin;
    std::string end;
    for (int i = 0; i < k_deep; ++i) {
        begin += entry(DW_TAG_namespace, {nameAttr("n" + number(i))}, Children::Follow);
        end += k_end;
    }
    std::string functions;
    for (int i = 0; i < 200; ++i) {
        functions += function("f" + number(i), i * 4, 4);
    }
    DwarfText deep;
    deep.unit({}, unitOf(begin + functions + end));
    std::string const symbols = symbolsOf(deep);
    EXPECT_EQ(std::count(symbols.begin(), symbols.end(), '['), 200);
    EXPECT_EQ(symbols.substr(0, 8), "n1::n2::");
    EXPECT_LT(symbols.size(), 200U * 64 * 8);
}

TEST(Later, TheSymbolTableHasTheLastWord) {
    Reading const modern(reading_Modern);
    std::string const table =
        ".text\n.globl alias, wide\n.type alias, @function\n.type own, @function\n.type wide, @function\n"
        ".type part, @function\n.set own, code\n.set alias, code\n.size own, 8\n.size alias, 8\n"
        ".set wide, code + 16\n.size wide, 4\n.set part, code + 16\n.size part, 8\n"
        ".set mangled, code + 32\n.type mangled, @function\n.size mangled, 8\n";
    std::string const linked = entry(DW_TAG_subprogram, {nameAttr("l"),
                                                         {DW_AT_linkage_name, DW_FORM_string, "linked"},
                                                         lowAttr(32),
                                                         {DW_AT_high_pc, DW_FORM_data1, "8"}});
    std::string const unnamed = entry(DW_TAG_subprogram, {lowAttr(16), {DW_AT_high_pc, DW_FORM_data1, "4"}});
    for (auto const& [entries, symbols] : std::vector<std::pair<std::string, std::string>>{
             {function("own", 0, 8), "own[1000,1008)l"}, // one of two, though another is global
             {function("f", 0, 8), "alias[1000,1008)g"}, // the one that others see
             {function("f", 0, 4), "a::f[1000,1004)l"},  // another end
             {function("f", 16, 8), "part[1010,1018)l"}, // the start alone is not enough
             {unnamed, "wide[1010,1014)g"},
             {linked, "linked[1020,1028)l"},
         }) {
        DwarfText text;
        text.unit({}, unitOf(named(DW_TAG_namespace, "a", entries)));
        std::string got = dwarfSymbols(Assembled(text.source() + table).path(), k_functions);
        if (symbols.back() == 'g') { // what it takes in gives its visibility too
            got += "g";
        }
        EXPECT_EQ(got, symbols);
    }
}

TEST(Later, WhatTheLinkerDroppedIsLeftOut) {
    auto const at = [](std::string const& name, std::string const& address) {
        return entry(DW_TAG_subprogram,
                     {nameAttr(name), {DW_AT_low_pc, DW_FORM_addr, address}, {DW_AT_high_pc, DW_FORM_data4, "4"}});
    };
    std::string const listed = entry(DW_TAG_subprogram, {nameAttr("r"), {DW_AT_ranges, DW_FORM_sec_offset, "0"}});
    std::string const entries =
        at("zero", "0") + at("ones", "-1") + at("twos", "-2") + at("near", "1") + listed + at("kept", "code");
    std::string const program =
        setAddress(0) + k_copyRow + setAddress(4) + k_endSequence + // another at 0, over the code
        ".byte 0, 9, 2\n.8byte 0\n.byte 3, 8\n" + k_copyRow + ".byte 2\n.uleb128 0x1000\n.byte 3, 1\n" + k_copyRow +
        ".byte 2\n.uleb128 8\n" + k_endSequence;
    DwarfText text;
    text.unit({}, unitOf(entries, {{DW_AT_stmt_list, DW_FORM_sec_offset, "0"}}))
        .section(".debug_ranges", ".8byte 0, 16, code + 0x20, code + 0x28, 0, 0\n")
        .section(".debug_line", lineTable({}, program));
    Assembled const module(text.source());
    EXPECT_EQ(dwarfSymbols(module.path(), k_functions),
              "r[0,10)l zero[0,4)l near[1,5)l kept[1000,1004)l r[1020,1028)l");
    Reading const modern(reading_Modern);
    EXPECT_EQ(dwarfSymbols(module.path(), k_functions), "near[1,5)l kept[1000,1004)l r[1020,1028)l");
    EXPECT_EQ(PlainDebugInfo(module.path()).rows(), "1000+4 a.c:1:0");
}

TEST(Reading, BothSideBySide) {
    DwarfText text;
    text.unit(k_later, unitOf(function("f", 0, 4)));
    Assembled const module(text.source());
    auto const classic = bankOf(module.path());
    setReading(reading_Modern);
    auto const modern = bankOf(module.path());
    setReading(reading_Classic);
    EXPECT_NE(classic.get(), modern.get());
    // Asked only now: each goes by what it was made with.
    EXPECT_EQ(symbolAt(*modern, 0x1000), "f@1000+4");
    EXPECT_EQ(symbolAt(*classic, 0x1000, k_functions), "none");
    EXPECT_EQ(bankOf(module.path()).get(), classic.get());
    Reading const again(reading_Modern);
    EXPECT_EQ(bankOf(module.path()).get(), modern.get());
    EXPECT_EQ(symbolAt(*bankOf(module.path(), load_flags_NewLoader), 0x1000), "f@1000+4");
}
