// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Stack variables with the modern reading: expressions, lists of both kinds, frames, blocks and types, from assembler
/// text.

#include "support/orv_stack_text.h"

using namespace orv_test;

namespace {

constexpr unsigned long long k_callFrame = k_stackPointer + 0x20;

Attr expression(unsigned int name, std::string const& bytes) { return {name, DW_FORM_exprloc, bytes}; }
Attr placeIn(std::string const& bytes) { return expression(DW_AT_location, bytes); }
Attr baseIn(std::string const& bytes) { return expression(DW_AT_frame_base, bytes); }
Attr numbered(unsigned int name, unsigned int form, long long value) {
    bool const isLong = form == DW_FORM_udata;
    return {name, form, (isLong ? ".uleb128 " : "") + number(value), isLong};
}

/// A function over [0x1000, 0x1040), whose end is a distance.
std::string functionWith(std::string const& inner, Attr const& base, int start = 0, std::string const& name = "f") {
    return entry(DW_TAG_subprogram, functionAttrs(name, start, 0x40, {base}), inner);
}

/// A unit of a version, with the function's frame in .debug_frame: the stack pointer and 0x20.
DwarfText unitOf(unsigned int version, std::string const& entries, std::string const& lists = "",
                 Attrs const& more = {}, std::string const& frames = ".byte 0x0c, 7, 0x20\n") {
    Attrs attrs = {nameAttr("a.c"), lowAttr(0)};
    attrs.insert(attrs.end(), more.begin(), more.end());
    DwarfText text;
    text.unit({version, 8, false}, entry(DW_TAG_compile_unit, attrs, base("int", "int", 4) + entries));
    text.section(version < 5 ? ".debug_loc" : ".debug_loclists", ".Llists:\n" + lists);
    text.section(".debug_addr", ".4byte 0x1c\n.2byte 5\n.byte 8, 0\n.8byte code, code + 0x10, code + 0x20\n");
    text.section(".debug_frame", ".4byte 2f - 1f\n1: .4byte -1\n.byte 1, 0, 1, 0x78, 16\n" + frames +
                                     "2: .4byte 4f - 3f\n3: .4byte 0\n.8byte code, 0x100\n4:\n");
    return text;
}

/// Where a variable is found; 0 if nowhere.
unsigned long long placeOf(DwarfText const& text) {
    FakeFrame frame(text, "", reading_Modern);
    return frame.find();
}

std::string kind(unsigned int number_, std::string const& operands, std::string const& expression = ".byte 0x77, 8") {
    return ".byte " + number(number_) + "\n" + operands + ".uleb128 9f - 8f\n8: " + expression + "\n9:\n";
}

} // namespace

TEST(StackPlace, Expressions) {
    struct Row {
        char const* name;
        std::string base;
        std::string place;
        unsigned long long address; ///< 0: the variable is nowhere.
    };
    std::string const fbreg = ".byte 0x91\n.sleb128 -16";
    for (unsigned int const version : {4U, 5U}) {
        for (Row const& row : {
                 Row{"the call frame", ".byte 0x9c", fbreg, k_callFrame - 16},
                 Row{"the content of the frame pointer", ".byte 0x56", fbreg, k_framePointer - 16},
                 Row{"the content of the stack pointer", ".byte 0x57", ".byte 0x91, 8", k_stackPointer + 8},
                 Row{"that register by its number", ".byte 0x90, 7", ".byte 0x91, 8", k_stackPointer + 8},
                 Row{"another register, which is not known", ".byte 0x53", fbreg, 0},
                 Row{"an offset of the frame pointer", ".byte 0x76, 16", fbreg, k_framePointer},
                 Row{"one with the number behind it", ".byte 0x92, 6, 16", fbreg, k_framePointer},
                 Row{"an offset of a register that is not known", ".byte 0x73, 0", fbreg, 0},
                 Row{"a frame base of 32-bit programs", ".byte 0x74, 0", fbreg, 0},
                 Row{"a register and more", ".byte 0x56, 0x23, 8", fbreg, 0},
                 Row{"a base that counts from itself", ".byte 0x91, 0", fbreg, 0},
                 Row{"no base", "", fbreg, 0},
                 Row{"no base, and none needed", "", ".byte 0x77, 8", k_stackPointer + 8},
                 Row{"the call frame without a base", "", ".byte 0x9c, 0x38, 0x1c", k_callFrame - 8},
                 Row{"all operations count", ".byte 0x9c", ".byte 0x91, 8, 0x23, 4", k_callFrame + 12},
                 Row{"constants", "", ".byte 0x77, 0, 8, 16, 9, 0xf8, 0x22, 0x22", k_stackPointer + 8},
                 Row{"wider constants", "",
                     ".byte 0x77, 0, 0x0a\n.2byte 8\n.byte 0x0b\n.2byte -4\n.byte 0x0c\n.4byte 8\n.byte 0x0d\n.4byte "
                     "-8\n.byte 0x0e\n.8byte 12\n.byte 0x0f\n.8byte -4\n.byte 0x22, 0x22, 0x22, 0x22, 0x22, 0x22",
                     k_stackPointer + 12},
                 Row{"constants of any length", "", ".byte 0x10\n.uleb128 0x8000\n.byte 0x11, 0x70, 0x22", 0x7FF0},
                 Row{"moved about", "", ".byte 0x77, 0, 0x12, 0x34, 0x16, 0x13, 0x22, 0x14, 0x1c, 0x77, 4, 0x22", 0},
                 Row{"aligned down", "", ".byte 0x77, 0x14, 0x09, 0xf0, 0x1a", k_stackPointer + 16},
                 Row{"negated, and the other way round", "", ".byte 0x77, 8, 0x1f, 0x20, 0x31, 0x22, 0x96",
                     k_stackPointer + 8},
                 Row{"shifted", "", ".byte 0x37, 0x3c, 0x24, 0x38, 0x21", 0x7008},
                 Row{"shifted too far", "", ".byte 0x31, 8, 64, 0x24, 0x77, 0, 0x22", k_stackPointer},
                 Row{"an address", "", ".byte 3\n.8byte 0x9000", 0x9000},
                 Row{"one piece", ".byte 0x9c", fbreg + "\n.byte 0x93, 4", k_callFrame - 16},
                 Row{"two pieces", ".byte 0x9c", fbreg + "\n.byte 0x93, 4, 0x50, 0x93, 4", 0},
                 Row{"in a register", "", ".byte 0x56", 0},
                 Row{"a value without a place", "", ".byte 0x77, 8, 0x9f", 0},
                 Row{"a value as it is", "", ".byte 0x9e, 4\n.4byte 0x7000", 0},
                 Row{"the value of an entry", "", ".byte 0xa3, 1, 0x57", 0},
                 Row{"the same in its forerunner", "", ".byte 0xf3, 1, 0x57", 0},
                 Row{"what memory holds", ".byte 0x9c", fbreg + "\n.byte 0x06", 0},
                 Row{"a jump", "", ".byte 0x77, 8, 0x2f\n.2byte -5", 0},
                 Row{"a jump on a condition", "", ".byte 0x77, 8, 0x31, 0x28\n.2byte -6", 0},
                 Row{"an operation that is not known", "", ".byte 0x77, 8, 0xe5", 0},
                 Row{"too few on the stack", "", ".byte 0x77, 8, 0x22", 0},
                 Row{"an operand that breaks off", "", ".byte 0x0e, 0, 0x80, 0, 0", 0},
                 Row{"one that is not there", "", ".byte 0x77", 0},
                 Row{"more than the stack holds", "", ".byte 0x77, 8\n.fill 40, 1, 0x12", 0},
                 Row{"nothing", "", "", 0},
             }) {
            EXPECT_EQ(placeOf(unitOf(version, functionWith(variable("v", placeIn(row.place)), baseIn(row.base)))),
                      row.address)
                << row.name << ", version " << version;
        }
    }
}

TEST(StackPlace, IndexedAddress) {
    std::string const variables = variable("v", placeIn(".byte 0xa1, 2"));
    FakeFrame frame(
        unitOf(5, functionWith(variables, baseIn("")), "", {numbered(DW_AT_addr_base, DW_FORM_sec_offset, 8)}), "",
        reading_Modern);
    EXPECT_EQ(frame.at(0x1020), "v!");
    EXPECT_EQ(frame.at(0x1024), "-");
}

TEST(StackPlace, FramesThatAreNotKnown) {
    struct Row {
        char const* name;
        char const* frames;
        unsigned long long callFrame;
        char const* log = "";
    };
    std::string const inner = functionWith(variable("v", placeIn(".byte 0x91, 8")), baseIn(".byte 0x9c"));
    for (Row const& row : {
             Row{"a register", ".byte 0x0c, 6, 16\n", k_framePointer + 16},
             Row{"an expression", ".byte 0x0f, 2, 0x76, 16\n", k_framePointer + 16},
             Row{"one that asks for the frame itself", ".byte 0x0f, 1, 0x9c\n", 0, "The call frame at "},
             Row{"one that asks for its base", ".byte 0x0f, 2, 0x91, 0\n", 0, "The call frame at "},
             Row{"what memory holds", ".byte 0x0f, 3, 0x76, 0x78, 6\n", 0, "The call frame at "},
             Row{"a register that is not known", ".byte 0x0c, 3, 16\n", 0, "The call frame at "},
             Row{"no rule", "", 0, "Damaged call frame information for "},
         }) {
        LogCapture const log;
        FakeFrame frame(unitOf(5, inner, "", {}, row.frames), "", reading_Modern);
        EXPECT_EQ(frame.at(k_framePointer + 24), row.callFrame != 0 ? "v!" : "-") << row.name;
        EXPECT_EQ(log.count(row.log) != 0, true) << row.name;
        EXPECT_EQ(log.count("No frame base is known for "), row.callFrame != 0 ? 0U : 1U) << row.name;
    }
    LogCapture const log;
    FakeFrame frame(unitOf(5, functionWith(variable("v", placeIn(".byte 0x91, 8")), baseIn(".byte 0x9c"), 0x100)), "",
                    reading_Modern);
    EXPECT_EQ(frame.at(k_callFrame + 8, 0x1110), "-");
    EXPECT_EQ(log.count("No call frame information for 4368"), 1U);
}

TEST(StackPlace, ListsOfVersion5) {
    std::string const here = ".byte 0x77, 16"; // pc is 0x1010
    std::string const there = ".byte 0x77, 8";
    struct Row {
        char const* name;
        std::string list;
        unsigned long long offset; ///< Of the stack pointer; 0: the variable is nowhere.
    };
    for (Row const& row : {
             Row{"a pair of offsets", kind(4, ".uleb128 0x10, 0x11\n", here), 16},
             Row{"one that ends at pc", kind(4, ".uleb128 0, 0x10\n", here), 0},
             Row{"behind another", kind(4, ".uleb128 0, 0x10\n", there) + kind(4, ".uleb128 0x10, 0x20\n", here), 16},
             Row{"the first that holds it", kind(4, ".uleb128 0, 0x20\n", there) + kind(4, ".uleb128 0, 0x20\n", here),
                 8},
             Row{"a start and an end", kind(7, ".8byte 0x1010, 0x1011\n", here), 16},
             Row{"a start and a length", kind(8, ".8byte 0x1010\n.byte 1\n", here), 16},
             Row{"indices of both", kind(2, ".byte 1, 2\n", here), 16},
             Row{"an index and a length", kind(3, ".byte 1, 1\n", here), 16},
             Row{"an index that is not there", kind(3, ".byte 9, 1\n", here), 0},
             Row{"a base", ".byte 6\n.8byte 0x1008\n" + kind(4, ".uleb128 8, 9\n", here), 16},
             Row{"the index of a base", ".byte 1, 1\n" + kind(4, ".uleb128 0, 1\n", here), 16},
             Row{"what else it is", kind(5, "", there) + kind(4, ".uleb128 0, 0x20\n", here), 16},
             Row{"what it is where nothing else is", kind(5, "", here) + kind(4, ".uleb128 0, 8\n", there), 16},
             Row{"views", ".byte 9, 1, 2\n" + kind(4, ".uleb128 0x10, 0x11\n", here), 16},
             Row{"a kind that is not known", ".byte 10\n" + kind(4, ".uleb128 0x10, 0x11\n", here), 0},
             Row{"nothing", "", 0},
             Row{"an expression that breaks off", ".byte 4, 0, 0x20, 100, 0x77, 16\n", 0},
         }) {
        for (bool const isIndexed : {false, true}) {
            // By its place, or by its number.
            Attr const location = isIndexed ? Attr{DW_AT_location, DW_FORM_loclistx, ".byte 0", true}
                                            : Attr{DW_AT_location, DW_FORM_sec_offset, "16"};
            std::string const lists = ".4byte 0x1000\n.2byte 5\n.byte 8, 0\n.4byte 1, 4\n" + row.list + ".byte 0\n";
            DwarfText const text = unitOf(5, functionWith(variable("v", location), baseIn("")), lists,
                                          {numbered(DW_AT_addr_base, DW_FORM_sec_offset, 8),
                                           numbered(DW_AT_loclists_base, DW_FORM_sec_offset, 12)});
            EXPECT_EQ(placeOf(text), row.offset != 0 ? k_stackPointer + row.offset : 0) << row.name << isIndexed;
        }
    }
}

TEST(StackPlace, ListsOfVersion4) {
    std::string const list = ".8byte 0, 0x10\n.2byte 2\n.byte 0x77, 8\n.8byte -1, 0x1008, 8, 9\n.2byte 2\n"
                             ".byte 0x77, 16\n.8byte 0, 0\n";
    Attr const location = {DW_AT_location, DW_FORM_sec_offset, "0"};
    EXPECT_EQ(placeOf(unitOf(4, functionWith(variable("v", location), baseIn("")), list)), k_stackPointer + 16);
    // The base of a frame may be a list too.
    Attr const base = {DW_AT_frame_base, DW_FORM_sec_offset, "0"};
    EXPECT_EQ(placeOf(unitOf(4, functionWith(variable("v", placeIn(".byte 0x91, 8")), base), list)),
              k_stackPointer + 24);
}

TEST(StackPlace, BlocksAndFunctionsWithin) {
    auto const blockAt = [](int start, int size, std::string const& inner, unsigned int tag = DW_TAG_lexical_block) {
        return entry(tag, {lowAttr(start), numbered(DW_AT_high_pc, DW_FORM_data4, size)}, inner);
    };
    auto const at8 = [](std::string const& name) { return variable(name, placeIn(".byte 0x77, 8")); };
    Attr const ranges = {DW_AT_ranges, DW_FORM_sec_offset, "0"};
    DwarfText text = unitOf(
        4, functionWith(blockAt(0, 8, at8("first")) +
                            entry(DW_TAG_subprogram, functionAttrs("within", 0x10, 8), at8("within")) +
                            blockAt(8, 8, at8("second"), DW_TAG_inlined_subroutine) +
                            entry(DW_TAG_lexical_block, {ranges}, blockAt(0x18, 4, at8("third")) + at8("scattered")) +
                            entry(DW_TAG_lexical_block, {}, variable("anywhere", placeIn(".byte 0x77, 16"))),
                        baseIn("")) +
               entry(DW_TAG_subprogram, {nameAttr("parts"), {DW_AT_ranges, DW_FORM_sec_offset, ".Lparts - .Lranges"}},
                     at8("part")));
    text.section(".debug_ranges", ".Lranges: .8byte 0x18, 0x20, 0x28, 0x30, 0, 0\n"
                                  ".Lparts: .8byte 0x200, 0x210, 0x300, 0x310, 0, 0\n");
    FakeFrame frame(text, "", reading_Modern);
    unsigned long long const where = k_stackPointer + 8;
    struct Asked {
        unsigned long long pc;
        char const* name;
        char const* above;
    };
    // A function within has a frame of its own, with nothing of the one around it.
    for (Asked const& asked :
         {Asked{0x1000, "first!", "anywhere!"}, Asked{0x1008, "second!", "anywhere!"}, Asked{0x1010, "within!", "-"},
          Asked{0x1018, "third!", "anywhere!"}, Asked{0x101C, "scattered!", "anywhere!"},
          Asked{0x1020, "-", "anywhere!"}, Asked{0x102F, "scattered!", "anywhere!"}, Asked{0x1208, "part!", "-"},
          Asked{0x1300, "part!", "-"}, Asked{0x1000, "first!", "anywhere!"}}) {
        EXPECT_EQ(frame.at(where, asked.pc), asked.name) << std::hex << asked.pc;
        EXPECT_EQ(frame.at(where + 8, asked.pc), asked.above) << std::hex << asked.pc;
    }
}

TEST(StackPlace, SizesOfTypes) {
    auto const subrange = [](Attrs const& attrs) { return entry(DW_TAG_subrange_type, attrs); };
    auto const upTo = [&](unsigned int form, long long last) {
        return subrange({numbered(DW_AT_upper_bound, form, last)});
    };
    auto const arrayOf = [](std::string const& name, std::string const& ranges, std::string const& of = "int") {
        return label(name) + entry(DW_TAG_array_type, {typeAttr(of)}, ranges);
    };
    std::string const types =
        arrayOf("data", upTo(DW_FORM_data1, 3)) +
        arrayOf("constant", subrange({numbered(DW_AT_count, DW_FORM_data2, 300)})) +
        arrayOf("signed", upTo(DW_FORM_sdata, 3)) + arrayOf("single", upTo(DW_FORM_data1, 0)) +
        arrayOf("none", upTo(DW_FORM_sdata, -1)) + arrayOf("open", subrange({})) +
        arrayOf("grid", upTo(DW_FORM_data1, 1) + subrange({numbered(DW_AT_count, DW_FORM_udata, 3)})) +
        arrayOf("half", upTo(DW_FORM_data1, 1) + subrange({})) +
        arrayOf("from", subrange({numbered(DW_AT_lower_bound, DW_FORM_sdata, -2),
                                  numbered(DW_AT_upper_bound, DW_FORM_data1, 2)})) +
        arrayOf("told", subrange({expression(DW_AT_upper_bound, ".byte 0x33")})) +
        arrayOf("huge", subrange({numbered(DW_AT_count, DW_FORM_data8, 1LL << 40)}) +
                            subrange({numbered(DW_AT_count, DW_FORM_data8, 1LL << 40)})) +
        arrayOf("below", subrange({numbered(DW_AT_count, DW_FORM_sdata, -5)})) +
        otherName("atom", "int", DW_TAG_atomic_type) + otherName("fixed", "atom", DW_TAG_const_type) +
        otherName("alias", "fixed") + otherName("reference", "grid", DW_TAG_reference_type) +
        otherName("moved", "grid", DW_TAG_rvalue_reference_type) + otherName("pointer", "int", DW_TAG_pointer_type) +
        otherName("member", "int", DW_TAG_ptr_to_member_type) + label("routine") + entry(DW_TAG_subroutine_type, {}) +
        otherName("method", "routine", DW_TAG_ptr_to_member_type) + label("null") +
        entry(DW_TAG_unspecified_type, {nameAttr("decltype(nullptr)")}) + label("auto") +
        entry(DW_TAG_unspecified_type, {nameAttr("auto")}) + otherName("colour", "int", DW_TAG_enumeration_type);
    struct Row {
        char const* type;
        unsigned long long size; ///< 1 where it is not known.
        bool isInteger = false;
    };
    for (Row const& row : {Row{"data", 16},      Row{"constant", 1200}, Row{"signed", 16},     Row{"single", 4},
                           Row{"none", 0},       Row{"open", 1},        Row{"grid", 24},       Row{"half", 1},
                           Row{"from", 20},      Row{"told", 1},        Row{"huge", 1},        Row{"below", 1},
                           Row{"atom", 4, true}, Row{"fixed", 4, true}, Row{"alias", 4, true}, Row{"reference", 8},
                           Row{"moved", 8},      Row{"pointer", 8},     Row{"member", 8},      Row{"method", 16},
                           Row{"null", 8},       Row{"auto", 1},        Row{"colour", 4}}) {
        FakeFrame frame(unitOf(5, types + functionWith(variable("v", placeIn(".byte 0x77, 8"), row.type), baseIn(""))),
                        "", reading_Modern);
        std::string const found = row.isInteger ? "v!" : "v";
        EXPECT_EQ(frame.at(k_stackPointer + 8 + row.size), "-") << row.type;
        EXPECT_EQ(frame.at(k_stackPointer + 7), "-") << row.type;
        if (row.size != 0) {
            EXPECT_EQ(frame.at(k_stackPointer + 8 + row.size - 1), found) << row.type;
        }
    }
}

TEST(StackPlace, Members) {
    auto const part = [](std::string const& type, Attrs attrs, unsigned int tag = DW_TAG_member) {
        attrs.push_back(typeAttr(type));
        return entry(tag, attrs);
    };
    auto const offset = [](int at) { return numbered(DW_AT_data_member_location, DW_FORM_udata, at); };
    auto const bits = [](int size) { return numbered(DW_AT_bit_size, DW_FORM_data1, size); };
    std::string const types =
        structure("empty", 1, "") +
        structure("base", 8, member("a", "int", 0) + member("b", "int", 4), DW_TAG_class_type) +
        structure("other", 8, part("base", {offset(0)}, DW_TAG_inheritance)) +
        structure("either", 4, part("int", {nameAttr("x")}) + part("int", {nameAttr("y")}), DW_TAG_union_type) +
        otherName("alias", "other") + otherName("fixed", "alias", DW_TAG_const_type) +
        structure(
            "derived", 48,
            part("empty", {offset(0)}, DW_TAG_inheritance) + part("base", {offset(0)}, DW_TAG_inheritance) +
                part("other", {offset(8)}, DW_TAG_inheritance) +
                part("base", {expression(DW_AT_data_member_location, ".byte 0x12, 6")}, DW_TAG_inheritance) +
                part("either", {offset(16)}) + part("fixed", {nameAttr("inner"), offset(20)}) +
                part("int", {nameAttr("shared"), {DW_AT_external, DW_FORM_flag_present}}) +
                part("int", {nameAttr("low"), bits(5), numbered(DW_AT_data_bit_offset, DW_FORM_data2, 230)}) +
                part("int", {nameAttr("high"), bits(9), numbered(DW_AT_data_bit_offset, DW_FORM_data2, 240)}) +
                part("int", {nameAttr("old"), bits(8), offset(32), numbered(DW_AT_byte_size, DW_FORM_data1, 4),
                             numbered(DW_AT_bit_offset, DW_FORM_data1, 8)}) +
                part("int", {nameAttr("odd"), bits(8), offset(40), numbered(DW_AT_bit_offset, DW_FORM_data1, 200)}));
    FakeFrame frame(unitOf(5, types + functionWith(variable("v", placeIn(".byte 0x77, 8"), "derived"), baseIn(""))), "",
                    reading_Modern);
    for (auto const& [at, wanted] : std::vector<std::pair<unsigned long long, char const*>>{
             {0, "v::a"},     {7, "v::b"},         {8, "v::a"},         {15, "v::b"},   {16, "v::x"},
             {19, "v::x"},    {20, "v::inner::a"}, {27, "v::inner::b"}, {28, "v::low"}, {29, "v::low"},
             {30, "v::high"}, {31, "v::high"},     {32, "v"},           {33, "v"},      {34, "v::old"},
             {35, "v"},       {40, "v::odd"},      {44, "v"},           {47, "v"},      {48, "-"}}) {
        EXPECT_EQ(frame.at(k_stackPointer + 8 + at), wanted) << at;
    }
}

TEST(StackPlace, TheSameFileWithBothReadings) {
    // Side by side, each keeps its own.
    DwarfText const text = withUnit(function(variable("v", placed(8)), block(DW_AT_frame_base, ".byte 0x9c")));
    FakeFrame classic(text);
    FakeFrame modern(unitOf(4, functionWith(variable("v", placeIn(".byte 0x91, 8")), baseIn(".byte 0x9c"))), "",
                     reading_Modern);
    EXPECT_EQ(classic.at(k_framePointer + 8), "v!");
    EXPECT_EQ(modern.at(k_callFrame + 8), "v!");
    EXPECT_EQ(modern.at(k_framePointer + 8), "-");
    EXPECT_EQ(classic.at(k_callFrame + 8), "-");
}

TEST(StackPlace, ManyThatShareWhatIsLong) {
    // Lists, expressions, ranges and frames that many variables ask for anew: the last one is found all the same.
    std::string const many =
        ".rept 3000\n" + variable("x", {DW_AT_location, DW_FORM_sec_offset, "0"}) + ".endr\n.rept 3000\n" +
        entry(DW_TAG_lexical_block, {{DW_AT_ranges, DW_FORM_sec_offset, "0"}}, variable("y", placeIn(".byte 0x56"))) +
        ".endr\n";
    DwarfText text = unitOf(5, functionWith(many + variable("last", placeIn(".byte 0x91, 8")), baseIn(".byte 0x9c")),
                            ".fill 2000, 1, 0\n", {}, ".byte 0x0c, 7, 0x20\n.fill 100000, 1, 0\n");
    text.section(".debug_loclists", ".rept 4000\n.byte 4, 0, 1, 0\n.endr\n.byte 0\n");
    text.section(".debug_rnglists", ".rept 4000\n.byte 4, 0, 1\n.endr\n.byte 0\n");
    FakeFrame frame(text, "", reading_Modern);
    EXPECT_EQ(frame.at(k_callFrame + 8), "last!");
}
