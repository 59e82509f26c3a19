// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Units, entries and the symbols that come of them, from assembler text.

#include "dwarf/orv_dwarf_merge.h"
#include "dwarf/orv_dwarf_producer.h"
#include "orv/orv_dwarf.h"
#include "support/orv_assembler.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>
#include <tuple>

using namespace orv_test;

namespace {

using Unit = DwarfText::Unit;

constexpr auto k_functions = symbol_kind_Function;

std::string function(std::string const& name, int start, int size, Attrs const& more = {}) {
    return entry(DW_TAG_subprogram, functionAttrs(name, start, size, more));
}

std::string unitOf(std::string const& entries, Attrs const& attrs = {nameAttr("a.c")}) {
    return entry(DW_TAG_compile_unit, attrs, entries);
}

/// The beginning of a unit that is cut off.
std::string openUnit() { return entry(DW_TAG_compile_unit, {nameAttr("a.c")}, Children::Follow); }

Attrs languageAttr(unsigned int language) { return {{DW_AT_language, DW_FORM_data1, number(language)}}; }

std::string symbolsOf(DwarfText const& text, symbol_kind_t mask = k_functions) {
    return dwarfSymbols(Assembled(text.source()).path(), mask);
}
std::string symbolsOf(std::string const& unit, symbol_kind_t mask = k_functions) {
    DwarfText text;
    return symbolsOf(text.unit({}, unit), mask);
}

} // namespace

TEST(Dwarf, PassesOverEveryForm) {
    using Row = std::pair<unsigned int, char const*>;
    for (auto const& [form, bytes] : {
             Row{DW_FORM_addr, ".8byte 0x1234"},
             Row{DW_FORM_block1, ".byte 3, 1, 2, 3"},
             Row{DW_FORM_block2, ".2byte 3\n.byte 1, 2, 3"},
             Row{DW_FORM_block4, ".4byte 3\n.byte 1, 2, 3"},
             Row{DW_FORM_block, ".uleb128 200\n.fill 200, 1, 2"},
             Row{DW_FORM_exprloc, ".uleb128 2\n.byte 1, 2"},
             Row{DW_FORM_data1, ".byte 9"},
             Row{DW_FORM_data2, ".2byte 9"},
             Row{DW_FORM_data4, ".4byte 9"},
             Row{DW_FORM_data8, ".8byte 9"},
             Row{DW_FORM_string, ".asciz \"text\""},
             Row{DW_FORM_flag, ".byte 1"},
             Row{DW_FORM_sdata, ".sleb128 -70000"},
             Row{DW_FORM_udata, ".uleb128 70000"},
             Row{DW_FORM_strp, ".4byte 0x7fffffff"},
             Row{DW_FORM_ref_addr, ".4byte 11"},
             Row{DW_FORM_ref1, ".byte 11"},
             Row{DW_FORM_ref2, ".2byte 11"},
             Row{DW_FORM_ref4, ".4byte 11"},
             Row{DW_FORM_ref8, ".8byte 11"},
             Row{DW_FORM_ref_udata, ".uleb128 300"},
             Row{DW_FORM_indirect, ".uleb128 5\n.2byte 9"},
             Row{DW_FORM_indirect, ".uleb128 0x16\n.uleb128 0x19"},
             Row{DW_FORM_sec_offset, ".4byte 0"},
             Row{DW_FORM_flag_present, ""},
             Row{DW_FORM_ref_sig8, ".8byte 0x1122334455667788"},
             Row{DW_FORM_GNU_addr_index, ".uleb128 300"},
             Row{DW_FORM_GNU_str_index, ".uleb128 300"},
             Row{DW_FORM_GNU_ref_alt, ".4byte 1"},
             Row{DW_FORM_GNU_strp_alt, ".4byte 1"},
         }) {
        // The form stands in a function, whose attributes are read, in a type, which is passed over, and
        // in a type's child.
        Attr const odd = {0x2001, form, bytes, true};
        std::string const entries =
            entry(DW_TAG_subprogram, {odd, nameAttr("f"), odd, lowAttr(0), {DW_AT_high_pc, DW_FORM_data4, "4"}, odd}) +
            entry(DW_TAG_structure_type, {odd, odd}, entry(DW_TAG_member, {odd})) + function("g", 16, 4);
        EXPECT_EQ(symbolsOf(unitOf(entries)), "f[1000,1004)l g[1010,1014)l") << "form " << form << ": " << bytes;
    }
}

TEST(Dwarf, RefusedFormsEndTheirList) {
    for (unsigned int const form : {0x02U, 0x1AU, 0x1BU, 0x1CU, 0x1DU, 0x1EU, 0x1FU, 0x21U, 0x22U, 0x25U, 0x29U}) {
        for (bool const isIndirect : {false, true}) {
            Attr const refused = {0x2001, form, "", true};
            Attr const indirect = {0x2001, DW_FORM_indirect, ".uleb128 " + number(form), true};
            std::string const type = entry(DW_TAG_structure_type, {isIndirect ? indirect : refused});
            DwarfText text;
            text.unit({}, unitOf(function("f", 0, 4) + type + function("g", 16, 4)))
                .unit({}, unitOf(function("h", 32, 4)));
            EXPECT_EQ(symbolsOf(text), "f[1000,1004)l h[1020,1024)l") << "form " << form;
        }
    }
}

TEST(Dwarf, ReadsUnitsOfEveryShape) {
    for (Unit const unit : {Unit{0, 8, false}, Unit{1, 8, false}, Unit{2, 8, false}, Unit{3, 8, false},
                            Unit{4, 8, false}, Unit{2, 8, true}, Unit{3, 8, true}, Unit{4, 8, true}}) {
        bool const wide = unit.is64 || unit.version < 3; // before version 3 a reference has the address's size
        Attrs const attrs = {{DW_AT_specification, DW_FORM_ref_addr, wide ? ".8byte 0" : ".4byte 0", true},
                             {DW_AT_name, DW_FORM_strp, unit.is64 ? ".8byte 2" : ".4byte 2", true},
                             lowAttr(0),
                             {DW_AT_high_pc, DW_FORM_data1, "7"}};
        DwarfText text;
        text.unit(unit, unitOf(entry(DW_TAG_subprogram, attrs) + function("g", 16, 4)))
            .section(".debug_str", ".asciz \"x\"\n.asciz \"named\"\n");
        EXPECT_EQ(symbolsOf(text), "named[1000,1007)l g[1010,1014)l")
            << "version " << unit.version << (unit.is64 ? ", 64 bits" : "");
    }
    // Addresses of 4 bytes, in a 32-bit program.
    DwarfText text;
    text.unit({2, 4, false},
              unitOf(entry(DW_TAG_subprogram, {nameAttr("f"),
                                               {DW_AT_low_pc, DW_FORM_addr, ".4byte code", true},
                                               {DW_AT_high_pc, DW_FORM_addr, ".4byte code + 6", true}})));
    EXPECT_EQ(dwarfSymbols(Assembled(text.source(), Assembled::Kind::Program, true).path(), k_functions),
              "f[1000,1006)l");
}

TEST(Dwarf, RefusesLaterVersions) {
    DwarfText text;
    text.unit({}, unitOf(function("f", 0, 4))).unit({5, 8, false}, unitOf(function("g", 16, 4)));
    Assembled const program(text.source());
    LogCapture const log(40000);
    status_t status = status_Ok;
    EXPECT_EQ(dwarfSymbols(program.path(), k_functions, &status), "");
    EXPECT_EQ(status, status_UnsupportedFileVersion);
    EXPECT_EQ(log.count("ASSERTION FAILED: 'version <= 4'"), 1U);
    // The next question is answered by what there is.
    auto const bank = bankOf(program.path());
    EXPECT_EQ(symbolAt(*bank, 0x1000), "none");
    EXPECT_EQ(symbolAt(*bank, 0x1000), "code@1000+0");
}

TEST(Dwarf, RefusesCutHeaders) {
    using Row = std::pair<char const*, char const*>;
    for (auto const& [bytes, assertion] : {
             Row{".byte 1, 2", "walker.getUnsigned4(debugInfoForCUSize) == status_Ok"},
             Row{".4byte 0xffffffff\n.byte 1", "walker.getUnsigned8(debugInfoForCUSize) == status_Ok"},
             Row{".4byte 1\n.byte 4", "rootWalker.getUnsigned2(version) == status_Ok"},
             Row{".4byte 0", "rootWalker.getUnsigned2(version) == status_Ok"},
             Row{".4byte 4\n.2byte 4, 0", "rootWalker.getUnsigned4(abbrevOffset) == status_Ok"},
             Row{".4byte 0xffffffff\n.8byte 6\n.2byte 4, 0, 0", "rootWalker.getUnsigned8(abbrevOffset) == status_Ok"},
             Row{".4byte 6\n.2byte 4\n.4byte 0", "rootWalker.getUnsigned1(addrSize) == status_Ok"},
         }) {
        DwarfText text;
        text.section(".debug_info", std::string(bytes) + "\n");
        Assembled const program(text.source());
        LogCapture const log(40000);
        status_t status = status_Ok;
        dwarfSymbols(program.path(), k_functions, &status);
        EXPECT_EQ(status, status_BadFileFormat) << bytes;
        EXPECT_EQ(log.count(std::string("ASSERTION FAILED: '") + assertion + "'"), 1U) << bytes;
    }
}

TEST(Dwarf, ReadsAbbreviationsAsTheyCome) {
    // A second code 1 ends a table that has no terminator; a code met again stands for the later entry.
    DwarfText text;
    text.abbrev(1, DW_TAG_compile_unit, true, {{DW_AT_name, DW_FORM_string}})
        .abbrev(2, DW_TAG_subprogram, false, {})
        .abbrev(2, DW_TAG_structure_type, false, {{DW_AT_name, DW_FORM_string}})
        .abbrev(0x40000, DW_TAG_subprogram, false,
                {{DW_AT_name, DW_FORM_string},
                 {DW_AT_name, DW_FORM_string},
                 {DW_AT_low_pc, DW_FORM_addr},
                 {DW_AT_high_pc, DW_FORM_data1}})
        .abbrev(1, DW_TAG_compile_unit, true, {{DW_AT_name, DW_FORM_data1}})
        .abbrev(7, DW_TAG_subprogram, false, {});
    text.unit({}, ".uleb128 1\n.asciz \"a.c\"\n.uleb128 2\n.asciz \"type\"\n"
                  ".uleb128 0x40000\n.asciz \"first\"\n.asciz \"second\"\n.8byte code\n.byte 3\n.uleb128 7\n" +
                      function("lost", 16, 4));
    Assembled const program(text.source());
    LogCapture const log(40000);
    EXPECT_EQ(dwarfSymbols(program.path(), k_functions), "first[1000,1003)l");
    EXPECT_EQ(log.count("ASSERTION FAILED: 'm_abbrevsMap[abbrevCode] == NULL'"), 1U);
    EXPECT_GE(log.count("ASSERTION FAILED: 'false'"), 1U); // code 7 lies behind the table's end
}

TEST(Dwarf, FollowsSiblingsOfKnownCompilersOnly) {
    using Row = std::tuple<char const*, char const*, char const*>;
    // The sibling leads over f to g.
    for (auto const& [producer, sibling, symbols] : {
             Row{"GNU C 4.8", ".Lg - .Lunit0", "g[1010,1014)l"},
             Row{"Varko(R) Version 12.1", ".Lg - .Lunit0", "g[1010,1014)l"},
             Row{"GNU C 2.96", ".Lg - .Lunit0", "f[1000,1004)l g[1010,1014)l"},
             Row{"clang version 14", ".Lg - .Lunit0", "f[1000,1004)l g[1010,1014)l"},
             Row{"GNU C 4.8", "0", "f[1000,1004)l g[1010,1014)l"},
             Row{"GNU C 4.8", ".Ls - .Lunit0", "f[1000,1004)l g[1010,1014)l"},
             Row{"GNU C 4.8", "0x7fffffff", ""},
         }) {
        std::string const structure =
            entry(DW_TAG_structure_type, {nameAttr("s"), {DW_AT_sibling, DW_FORM_ref4, sibling}}, "");
        EXPECT_EQ(symbolsOf(unitOf(".Ls: " + structure + function("f", 0, 4) + ".Lg: " + function("g", 16, 4),
                                   {{DW_AT_producer, DW_FORM_string, producer}})),
                  symbols)
            << producer << ", " << sibling;
    }
}

TEST(Dwarf, MakesSymbolsByTag) {
    // What stands in which tag, and what comes of it under which kinds.
    struct Row {
        unsigned int tag;
        unsigned int language;
        symbol_kind_t mask;
        char const* symbols;
        bool isInline = false; ///< Says so: it is no mere declaration.
    };
    constexpr auto k_data = symbol_kind_Data;
    constexpr auto k_entries = symbol_kind_FunctionAlt;
    for (auto const& [tag, language, mask, symbols, isInline] : {
             Row{DW_TAG_lexical_block, DW_LANG_C, k_functions, "f[1000,1004)l"},
             Row{DW_TAG_try_block, DW_LANG_C, k_functions, "f[1000,1004)l"},
             Row{DW_TAG_common_block, DW_LANG_C, k_functions, "f[1000,1004)l"},
             Row{DW_TAG_module, DW_LANG_Fortran90, k_functions, "f[1000,1004)l"},
             Row{DW_TAG_unit_options, DW_LANG_C, k_functions, "f[1000,1004)l"},
             Row{0x39, DW_LANG_C_plus_plus, k_functions, ""}, // a namespace
             Row{DW_TAG_class_type, DW_LANG_C_plus_plus, k_functions, ""},
             Row{DW_TAG_inlined_subroutine, DW_LANG_C, k_functions, ""},
             Row{DW_TAG_inlined_subroutine, DW_LANG_C, k_functions, "f[1000,1004)l", true},
             Row{DW_TAG_subprogram, DW_LANG_C, k_functions, ""}, // children of a declaration
             Row{DW_TAG_subprogram, DW_LANG_Fortran90, k_functions, ""},
             Row{DW_TAG_subprogram, DW_LANG_Fortran90, k_data, ""},
             Row{DW_TAG_subprogram, DW_LANG_Fortran90, k_data, "v[1008,1008)l", true},
             Row{DW_TAG_subprogram, DW_LANG_C, k_data, ""},
             Row{DW_TAG_entry_point, DW_LANG_Fortran90, k_entries, ""},
             Row{DW_TAG_variable, DW_LANG_C, k_data, "v[1008,1008)l"},
             Row{DW_TAG_variable, DW_LANG_C, k_functions, ""},
             Row{DW_TAG_label, DW_LANG_C, symbol_kind_DataAlt, "l[100c,100c)l"},
             Row{DW_TAG_label, DW_LANG_C, k_functions, ""},
         }) {
        std::string const inner =
            function("f", 0, 4) +
            entry(DW_TAG_variable, {nameAttr("v"), {DW_AT_location, DW_FORM_block1, ".byte 3\n.8byte code + 8"}}) +
            entry(DW_TAG_label, {nameAttr("l"), lowAttr(12)});
        Attrs const attrs = isInline ? Attrs{{DW_AT_inline, DW_FORM_flag_present}} : Attrs();
        EXPECT_EQ(symbolsOf(unitOf(entry(tag, attrs, inner), languageAttr(language)), mask), symbols)
            << "tag " << tag << ", kinds " << mask;
    }
    EXPECT_EQ(symbolsOf(unitOf(entry(DW_TAG_label, {nameAttr("l")})), symbol_kind_DataAlt), "l[0,0)l")
        << "a label without an address stands at 0";
}

TEST(Dwarf, NamesAndPlacesFunctions) {
    auto const subprogram = [](Attrs const& attrs) { return entry(DW_TAG_subprogram, attrs); };
    auto const highAttr = [](char const* place) { return Attr{DW_AT_high_pc, DW_FORM_addr, place}; };
    Attr const isInline = {DW_AT_inline, DW_FORM_data1, "1"};
    auto const linkage = [](char const* name) { return Attr{DW_AT_linkage_name, DW_FORM_string, name}; };
    auto const declared = [](char const* where) { return Attr{DW_AT_specification, DW_FORM_ref4, where}; };
    auto const origin = [](char const* where) { return Attr{DW_AT_abstract_origin, DW_FORM_ref4, where}; };
    std::string const entries =
        ".Lplain: " + subprogram({nameAttr("plain"), linkage("_Z5plainv"), {DW_AT_external, DW_FORM_flag_present}}) +
        ".Lx: " + subprogram({declared(".Lplain - .Lunit0"), lowAttr(0), highAttr("code + 8")}) +
        subprogram({origin(".Lx - .Lunit0"), lowAttr(16)}) + // its name through two origins; its place is its own
        ".Lr: " + subprogram({nameAttr("listed"), isInline, {DW_AT_ranges, DW_FORM_sec_offset, "0"}}) +
        subprogram({origin(".Lr - .Lunit0"), lowAttr(24)}) +       // the list is another one's
        subprogram({nameAttr("inlined"), isInline}) +              // abstract: no place
        subprogram({nameAttr("endless"), highAttr("code + 32")}) + // an end that is an address, no start
        subprogram({{DW_AT_MIPS_linkage_name, DW_FORM_string, "vendor"}, linkage("linkage"), lowAttr(48)}) +
        function("", 64, 4) +
        subprogram({declared(".Lplain - .Lunit0"), lowAttr(80), highAttr("code + 72")}) + // the wrong way round
        function("tail_", 96, 4) + function("_BLNK_", 112, 4);
    DwarfText text;
    text.unit({}, unitOf(entries, languageAttr(DW_LANG_C_plus_plus)))
        .section(".debug_ranges", ".8byte code + 0x200, code + 0x208, 0, 0\n");
    EXPECT_EQ(symbolsOf(text),
              "_Z5plainv[1000,1008) _Z5plainv[1010,1010) listed[1018,1018)l endless[1020,1020)l vendor[1030,1030)l "
              "tail_[1060,1064)l _BLNK_[1070,1074)l listed[1200,1208)l");
    std::string const outer = entry(DW_TAG_subprogram, functionAttrs("outer_", 0, 64), function("inner_", 16, 8));
    EXPECT_EQ(symbolsOf(unitOf(function("tail_", 96, 4) + function("_BLNK_", 112, 4) + outer,
                               languageAttr(DW_LANG_Fortran95))),
              "outer[1000,1040)l inner[1010,1018)l tail[1060,1064)l _BLNK_[1070,1074)l");
}

TEST(Dwarf, OriginsThatLeadInCirclesEnd) {
    auto const circle = [](char const* where) {
        return entry(DW_TAG_subprogram, {{DW_AT_specification, DW_FORM_ref4, where}, lowAttr(0)});
    };
    auto const type = [](char const* where) { return Attr{DW_AT_type, DW_FORM_ref4, where}; };
    Attr const place = {DW_AT_location, DW_FORM_block1, ".byte 3\n.8byte code + 8"};
    EXPECT_EQ(symbolsOf(unitOf(".La: " + circle(".Lb - .Lunit0") + ".Lb: " + circle(".La - .Lunit0") +
                               ".Lc: " + circle(".Lc - .Lunit0") + circle("0x7ffffff0") +
                               entry(DW_TAG_variable, {type(".Lt - .Lunit0"), nameAttr("v"), place}) +
                               ".Lt: " + entry(DW_TAG_typedef, {type(".Lu - .Lunit0")}) +
                               ".Lu: " + entry(DW_TAG_typedef, {type(".Lt - .Lunit0")}) + function("f", 16, 4)),
                        k_allKinds),
              "v[1008,1008)l f[1010,1014)l");
}

TEST(Dwarf, ReadsRangeLists) {
    auto const listed = [](std::string const& name, std::string const& offset) {
        return entry(DW_TAG_subprogram, {nameAttr(name), {DW_AT_ranges, DW_FORM_sec_offset, offset}});
    };
    std::string entries;
    for (std::string const name : {"two", "based", "skipped", "empty", "open"}) {
        entries += listed(name, "." + name + " - .Lranges");
    }
    DwarfText text;
    text.unit({}, unitOf(entries + listed("beyond", "0x7fffffff"), {lowAttr(0)}))
        .section(".debug_ranges", ".Lranges:\n"
                                  ".two: .8byte 0x10, 0x20, 0x40, 0x48, 0, 0\n"
                                  ".based: .8byte -1, code + 0x100, 0, 8, 0, 0\n"
                                  ".skipped: .8byte 0x70, 0x70, 0x200, 0x210, 0, 0\n"
                                  ".empty: .8byte 0, 0\n"
                                  ".open: .8byte 0x300, 0x304\n"); // the section ends before the list does
    EXPECT_EQ(symbolsOf(text),
              "two[1010,1020)l two[1040,1048)l based[1100,1108)l skipped[1200,1210)l open[1300,1304)l");
    // All ones of 4 bytes select a base only where addresses have 4 bytes.
    DwarfText narrow;
    narrow.unit({4, 4, false}, unitOf(listed("f", "0"), {{DW_AT_low_pc, DW_FORM_addr, ".4byte 0", true}}))
        .section(".debug_ranges", ".4byte -1, code + 0x10, 0, 8, 0, 0\n");
    EXPECT_EQ(dwarfSymbols(Assembled(narrow.source(), Assembled::Kind::Program, true).path(), k_functions),
              "f[1010,1018)l");
}

TEST(Dwarf, NestsWithoutEnd) {
    DwarfText text;
    text.abbrev(4, DW_TAG_lexical_block, true, {}).abbrev(5, DW_TAG_structure_type, true, {});
    text.unit({}, unitOf(".fill 1000000, 1, 4\n" + function("deep", 0, 4) + ".fill 1000000, 1, 0\n" +
                         ".fill 1000000, 1, 5\n.fill 1000000, 1, 0\n" + function("f", 16, 4)));
    EXPECT_EQ(symbolsOf(text), "deep[1000,1004)l f[1010,1014)l");
}

TEST(Dwarf, SurvivesAbsurdNumbers) {
    // Lengths near 2^32 and 2^64, numbers that go on for ever: what lies in front of them stays.
    auto const named = [](unsigned int form, char const* bytes) {
        return entry(DW_TAG_subprogram, {{0x2001, form, bytes, true}, {DW_AT_name, DW_FORM_string, "", true}});
    };
    for (std::string const& bytes :
         {named(DW_FORM_block4, ".4byte 0xfffffff0"), named(DW_FORM_exprloc, ".uleb128 0xfffffffffffffff0"),
          named(DW_FORM_exprloc, ".fill 5000, 1, 0x80"), named(DW_FORM_sdata, ".fill 5000, 1, 0xff"),
          std::string(".fill 5000, 1, 0x80\n"),
          entry(DW_TAG_subprogram, {{DW_AT_specification, DW_FORM_ref8, "-8"}, {DW_AT_low_pc, DW_FORM_addr, "", true}}),
          entry(DW_TAG_subprogram, {lowAttr(0), {DW_AT_high_pc, DW_FORM_data8, "-1"}})}) {
        DwarfText text;
        text.unit({}, openUnit() + function("f", 0, 4) + bytes);
        EXPECT_EQ(symbolsOf(text), "f[1000,1004)l") << bytes;
    }
    for (char const* const length : {"0xffffffe0", "0x7fffffff"}) {
        DwarfText text;
        text.section(".debug_info", std::string(".4byte ") + length + "\n.2byte 4\n.4byte 0\n.byte 8\n" + openUnit() +
                                        function("f", 0, 4));
        EXPECT_EQ(symbolsOf(text), "f[1000,1004)l") << length;
    }
}

TEST(Dwarf, UnitsThatShareHugeTablesEnd) {
    // Each of the units would read the abbreviations, the lines and the ranges of all.
    DwarfText text;
    text.abbrev(1, DW_TAG_compile_unit, true,
                {{DW_AT_stmt_list, DW_FORM_sec_offset}, {DW_AT_ranges, DW_FORM_sec_offset}});
    text.abbrevText(".set code_number, 2\n.rept 20000\n.uleb128 code_number, 0x13\n.byte 0, 0, 0\n"
                    ".set code_number, code_number + 1\n.endr\n");
    text.section(".debug_info", ".set at, 0\n.rept 20000\n.4byte 7 + 9\n.2byte 4\n.4byte .Labbrev + at * 4\n.byte 8\n"
                                ".uleb128 1\n.4byte 0, 0\n.set at, at + 1\n.endr\n");
    text.section(".debug_line",
                 ".4byte .Lline_end - .Lline_begin\n.Lline_begin: .2byte 2\n.4byte 6\n.byte 1, 1, 1, 1, 10, 0\n"
                 ".fill 300000, 1, 1\n.Lline_end:\n");
    Assembled const program(text.source());
    dwarfSymbols(program.path());
    PlainDebugInfo debug(program.path());
    debug.rows();
}

TEST(Dwarf, MergesWithRawSymbols) {
    // What stands in the symbol table under another name for one thing does not come twice; what has a
    // name of its own stays.
    using Row = std::tuple<char const*, char const*, unsigned int, char const*>;
    for (auto const& [dwarf, raw, rawSize, symbols] : {
             Row{"f", "f", 16, "f[4096,4112)"},
             Row{"f", "g", 16, "f[4096,4112) g[4096,4112)"},
             Row{"_ZN1AC2Ev", "_ZN1AC1Ev", 16, "_ZN1AC2Ev[4096,4112)"},
             Row{"_Z1fv", "_Z1fv.cold", 16, "_Z1fv[4096,4112)"},
             Row{"_Z1fv", "_Z1gv", 16, "_Z1fv[4096,4112) _Z1gv[4096,4112)"},
             Row{"f", "_Z1fv", 16, "_Z1fv[4096,4112)"}, // the fuller name is taken
             Row{"f", "f", 8, "f[4096,4112)"},
             Row{"f", "f", 32, "f[4096,4128)"}, // up to what follows at 0x1020
             Row{"f", "f", 48, "f[4096,4112)"},
         }) {
        DwarfText text;
        text.unit({}, unitOf(function(dwarf, 0, 16) + function("next", 32, 16)));
        std::string const name = std::string("\"") + raw + "\"";
        Assembled const program(text.source() + ".text\n.globl " + name + "\n.type " + name + ", @function\n.set " +
                                name + ", code\n.size " + name + ", " + std::to_string(rawSize) + "\n");
        auto const bank = bankOf(program.path());
        EXPECT_EQ(orv_test::symbolsOf(*bank, k_functions), std::string(symbols) + " next[4128,4144)")
            << dwarf << " and " << raw;
        ICompUnitDetails* unit = nullptr;
        EXPECT_EQ(rangeIn(*bank, 0x1000, k_functions)->symbol()->compUnitDetails(unit), status_Ok)
            << dwarf << " and " << raw;
    }
}

/// The steps, one by one, for names that are their own short forms.
unsigned int mergeModel(MergeSide const& mine, MergeSide const& other, MergeNext const& next) {
    std::string const name = mine.name;
    std::string const theirs = other.name;
    auto const areEqual = [](std::string const& first, std::string const& second) {
        return first == second || first + "." == second;
    };
    if (mine.firstStart != other.firstStart) {
        return 0;
    }
    unsigned int flags = 0;
    if (mine.hasSeveralRanges && !other.hasSeveralRanges) {
        flags = mine.lastEnd == other.lastEnd ? 4 : 0;
    } else if (other.isPoint()) {
        flags = 0;
    } else if (mine.isPoint()) {
        flags = 2;
    } else {
        unsigned long long const e = mine.lastEnd;
        unsigned long long const o = other.lastEnd;
        bool const isCandidate = (e > next.key && e > o) || (e < next.key && o <= next.key && e < o);
        bool const isNext = next.name != nullptr && o == next.key && areEqual(theirs, next.name);
        flags = isCandidate && !isNext ? 2 : 0;
    }
    return areEqual(name, theirs) ? flags + 8 + 0x10 : 0;
}

TEST(Dwarf, MergesByRule) {
    // Variants of a constructor are told without a look at their short forms, which part in an identifier.
    ShortNames forms;
    for (auto const& [mine, other, flags] : {std::tuple("_ZN1AC1Ev", "_ZN1AC2Ev", merge_TakeSymbolData),
                                             std::tuple("_ZN1AD0Ev", "_ZN1AD2Ev", merge_TakeSymbolData),
                                             std::tuple("_Z1fv", "_Z1fv.isra.0.cold", merge_TakeSymbolData),
                                             std::tuple("_Z1fv", "_Z1fi.isra.0", merge_TakeSymbolData),
                                             std::tuple("_Z1fv", "_Z1gv.isra.0", merge_Different),
                                             std::tuple("_ZN4AC1EC1Ev", "_ZN4AC2EC1Ev", merge_Different),
                                             std::tuple("_ZN1AC1Ev", "_ZN1BC2Ev", merge_Different)}) {
        MergeSide const a{mine, 1, 2, false, symbol_visibility_Local, symbol_kind_Other};
        MergeSide const b{other, 1, 2, false, symbol_visibility_Local, symbol_kind_Other};
        EXPECT_EQ(dwarfMergeRule(a, b, {}, forms), static_cast<unsigned int>(flags)) << mine << ' ' << other;
    }
    // Where much starts at one address, a newcomer is compared with those alone that have one of its keys.
    static constexpr char const* names[] = {"f",         "f.",        "f..",       "g",    "g.",   "_ZN1AC1Ev",
                                            "_ZN1AC2Ev", "_ZN1A1fEi", "_ZN1A1fEd", "A::f", "A::f."};
    auto const isOwnShortForm = [](MergeSide const& side) { return side.name[0] != '_'; };
    ShortNames shortNames;
    std::mt19937 random(7);
    auto const below = [&](unsigned int limit) { return static_cast<unsigned int>(random() % limit); };
    for (int i = 0; i < 20000; ++i) {
        auto const side = [&] {
            return MergeSide{names[below(std::size(names))], 100 + below(8) / 7, 100 + below(5), below(3) == 0,
                             symbol_visibility_Local,        symbol_kind_Other};
        };
        MergeSide const mine = side();
        MergeSide const other = side();
        MergeNext const next{100 + below(6), below(2) == 0 ? names[below(std::size(names))] : nullptr};
        unsigned int const rule = dwarfMergeRule(mine, other, next, shortNames);
        MatchKeys rival;
        MatchKeys newcomer;
        dwarfMatchKeys(mine, MatchRole::Rival, shortNames, rival);
        dwarfMatchKeys(other, MatchRole::Newcomer, shortNames, newcomer);
        bool const isFound =
            std::find_first_of(rival.begin(), rival.end(), newcomer.begin(), newcomer.end()) != rival.end();
        ASSERT_TRUE(isFound || rule == 0) << mine.name << ' ' << other.name;
        if (!isOwnShortForm(mine) || !isOwnShortForm(other)) {
            continue;
        }
        unsigned int expected = mergeModel(mine, other, next);
        if (std::strcmp(mine.name, other.name) == 0) {
            expected &= ~8U; // the name would be the same
        }
        ASSERT_EQ(rule, expected) << mine.name << mine.firstStart << '-' << mine.lastEnd << ' ' << other.name
                                  << other.firstStart << '-' << other.lastEnd << " next " << next.key
                                  << (next.name != nullptr ? next.name : "");
    }
}

TEST(Dwarf, EntriesMayEndWithTheirUnit) {
    // What becomes of a function whose unit ends in front of its last value.
    struct Row {
        unsigned int form;
        char const* symbols;
        std::size_t assertions; ///< At least.
    };
    for (auto const& [form, symbols, assertions] : {
             Row{DW_FORM_data1, "f[1000,1010)l", 0}, Row{DW_FORM_block1, "f[1000,1010)l", 0},
             Row{DW_FORM_flag_present, "f[1000,1010)l", 0}, Row{DW_FORM_sec_offset, "", 1}, // its reading is checked
             Row{DW_FORM_indirect, "", 0}, Row{0x1A, "", 0},                                // refused
         }) {
        for (unsigned int const attr : {static_cast<unsigned int>(DW_AT_decl_column), 0x27U}) {
            DwarfText text;
            text.unit({}, openUnit() + function("f", 0, 16, {{attr, form, "", true}}));
            LogCapture const log;
            EXPECT_EQ(symbolsOf(text), symbols) << form << " of " << attr;
            EXPECT_GE(log.count("ASSERTION FAILED: 'walker.getUnsigned4(attrValue) == status_Ok'"), assertions) << form;
        }
    }
}

TEST(Dwarf, ReadsProducers) {
    struct Row {
        char const* producer;
        char const* read; ///< Kind, version, report file.
    };
    for (auto const& [producer, read] : {
             Row{"GNU C++ 4.8.2 -O2", "1 4.8 "},
             Row{"GNU C 2.96", "2 2.96 "},
             Row{"GNU C 2.", "1 2.0 "},
             Row{"GNU C ", "1 0.0 "},
             Row{"GNU C++17 12.2.0", "1 0.0 "},
             Row{"Varko(R) C Version 7.1", "3 7.0 "},
             Row{"Varko(R) C Version 8.0", "4 8.0 "},
             Row{"Varko(R) C Version -1", "3 4294967295.0 "},
             Row{"Varko Version ", "3 0.0 "},
             Row{"The Varko(R) Version 9", "0 0.0 "},
             Row{"Varko(R) Opt_report_file a.rep -O2", "3 0.0 a.rep"},
             Row{"Varko(R) Opt_report_file c:\\dir\\a.rep", "3 0.0 c:\\d"},
             Row{"Varko(R) Opt_report_file tail\\", "3 0.0 tail\\"},
             Row{"", "0 0.0 "},
         }) {
        Compiler const compiler = parseProducer(producer);
        std::ostringstream text;
        text << compiler.kind << ' ' << compiler.major << '.' << compiler.minor << ' ' << compiler.optReportFile;
        EXPECT_EQ(text.str(), read) << producer;
    }
}

TEST(Dwarf, MergesOptions) {
    using Row = std::tuple<char const*, char const*, char const*>;
    for (auto const& [options, newText, merged] : {
             Row{"", "-g -O2 ", " -g  -O2 "},
             Row{"-g ", "-g -O3 ", "-g  -O3 "},
             Row{"", "-g -O2 -check stack ", " -g "},
             Row{"", "-g1 -O2", ""},
             Row{"x", "debug:full -fast -O2 debug:all ", "x debug:all  debug:full  -O2  -fast "},
         }) {
        std::string text = options;
        mergeOptions(text, newText);
        EXPECT_EQ(text, merged) << options << " with " << newText;
    }
}

TEST(Dwarf, CalculatesRanges) {
    // What no entry of a module has. The rest is seen where functions get their places.
    AttrBinding distance;
    distance.form = DW_FORM_data8;
    distance.value = 0x20;
    AttrBinding const* const distances[] = {nullptr, &distance};
    for (AttrBinding const* const high : distances) {
        unsigned long long start = 7;
        unsigned long long end = 7;
        dwarf_utils::calculateHighLowAdresses(nullptr, high, start, end);
        EXPECT_EQ(start, 0U);
        EXPECT_EQ(end, high != nullptr ? 0x20U : 0U);
    }
}
