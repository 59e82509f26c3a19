// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Stack variables: each form of a location, types and members, from assembler text.

#include "dwarf/orv_dwarf_constants.h"
#include "support/orv_assembler.h"

using namespace orv_test;

namespace {

constexpr unsigned long long k_stackPointer = 0x7000;
constexpr unsigned long long k_framePointer = 0x8000;

/// Abbreviations: 1 a unit, 2 a function with a frame base in a block, 3 one with a list, 4 a variable with a block and
/// a type, 5 one with a list, 6 one with an exprloc, 7 a lexical block, 8 a base type, 9 a structure, 10 a member at a
/// number, 11 at an expression, 13 an array, 14 a subrange, 15 a typedef, 16 a constant type,
/// 17 a union, 18 a variable with an origin and a block, 19 a function of DWARF 4, 20 a parameter.
DwarfText stackText() {
    DwarfText text;
    auto const function = [](unsigned int base, unsigned int high) {
        return DwarfText::Specs{{DW_AT_name, DW_FORM_string},
                                {DW_AT_low_pc, DW_FORM_addr},
                                {DW_AT_high_pc, high},
                                {DW_AT_frame_base, base}};
    };
    auto const variable = [](unsigned int form) {
        return DwarfText::Specs{{DW_AT_name, DW_FORM_string},
                                {DW_AT_location, form},
                                {DW_AT_type, DW_FORM_ref4},
                                {DW_AT_decl_file, DW_FORM_data1},
                                {DW_AT_decl_line, DW_FORM_data1}};
    };
    DwarfText::Specs const sized = {{DW_AT_name, DW_FORM_string}, {DW_AT_byte_size, DW_FORM_data2}};
    DwarfText::Specs const typed = {{DW_AT_type, DW_FORM_ref4}};
    auto const member = [](unsigned int form) {
        return DwarfText::Specs{
            {DW_AT_name, DW_FORM_string}, {DW_AT_type, DW_FORM_ref4}, {DW_AT_data_member_location, form}};
    };
    text.abbrev(1, DW_TAG_compile_unit, true, {{DW_AT_name, DW_FORM_string}, {DW_AT_low_pc, DW_FORM_addr}})
        .abbrev(2, DW_TAG_subprogram, true, function(DW_FORM_block1, DW_FORM_addr))
        .abbrev(3, DW_TAG_subprogram, true, function(DW_FORM_data4, DW_FORM_addr))
        .abbrev(4, DW_TAG_variable, false, variable(DW_FORM_block1))
        .abbrev(5, DW_TAG_variable, false, variable(DW_FORM_data4))
        .abbrev(6, DW_TAG_variable, false, variable(DW_FORM_exprloc))
        .abbrev(7, DW_TAG_lexical_block, true, {})
        .abbrev(8, DW_TAG_base_type, false, sized)
        .abbrev(9, DW_TAG_structure_type, true, sized)
        .abbrev(10, DW_TAG_member, false, member(DW_FORM_data1))
        .abbrev(11, DW_TAG_member, false, member(DW_FORM_block1))
        .abbrev(13, DW_TAG_array_type, true, typed)
        .abbrev(14, DW_TAG_subrange_type, false, {{DW_AT_upper_bound, DW_FORM_sdata}})
        .abbrev(15, DW_TAG_typedef, false, typed)
        .abbrev(16, DW_TAG_const_type, false, typed)
        .abbrev(17, DW_TAG_union_type, true, sized)
        .abbrev(18, DW_TAG_variable, false, {{DW_AT_abstract_origin, DW_FORM_ref4}, {DW_AT_location, DW_FORM_block1}})
        .abbrev(19, DW_TAG_subprogram, true, function(DW_FORM_exprloc, DW_FORM_data4))
        .abbrev(20, 0x05, false, variable(DW_FORM_block1));
    return text;
}

std::string number(long long value) { return std::to_string(value); }

std::string entry(int code, std::string const& name) {
    return ".uleb128 " + number(code) + "\n.asciz \"" + name + "\"\n";
}

/// A function over [0x1000, 0x1040]; its base as the form has it.
std::string function(std::string const& base, int code = 2) {
    return entry(code, "f") + ".8byte code, code + 0x40\n" + base;
}

std::string block(std::string const& bytes) { return ".byte 9f - 8f\n8: " + bytes + "\n9:\n"; }

std::string variable(std::string const& name, std::string const& location, std::string const& type = "int",
                     int code = 4) {
    return entry(code, name) + location + ".4byte .Lt_" + type + " - .Lunit0\n.byte 1, 3\n";
}

std::string base(std::string const& label, std::string const& name, int size) {
    return ".Lt_" + label + ": " + entry(8, name) + ".2byte " + number(size) + "\n";
}

constexpr char const* k_end = ".byte 0\n";

class FakeFrame {
public:
    explicit FakeFrame(DwarfText const& text, std::string const& more = "") : m_file(text.source() + more) {
        if (loadBank(m_file.path(), m_bank, load_flags_NewLoader) != status_Ok) {
            throw std::runtime_error("not loaded");
        }
        m_context = IStackFrameContext::create();
        m_context->setRegister(0, k_stackPointer);
        m_context->setRegister(1, k_framePointer);
    }
    std::string path() const { return m_file.path(); }
    IModuleSymbolBank& bank() { return *m_bank; }
    IStackFrameContext& context() { return *m_context; }
    SymMgrObjectPtr<ISymbol> const& symbol() const { return m_symbol; }

    status_t ask(unsigned long long pc, unsigned long long address, bool* isInteger) {
        m_symbol = nullptr;
        return m_bank->findStackVariable(addressIn(*m_bank, pc).get(), address, m_context, m_symbol, isInteger);
    }
    /// The name, with "!" behind it for an integer; "-" for none, "?" for a failure.
    std::string at(unsigned long long address, unsigned long long pc = 0x1010) {
        bool isInteger = false;
        status_t const status = ask(pc, address, &isInteger);
        return failed(status)           ? "?"
               : status == status_False ? "-"
                                        : m_symbol->name() + std::string(isInteger ? "!" : "");
    }
    /// Where a variable of 4 bytes starts among likely places; 0 if at none.
    unsigned long long find() {
        for (unsigned long long const near : {0ULL, k_stackPointer, k_framePointer, 0x10ULL, 0x9000ULL}) {
            for (long long offset = -64; offset <= 64; offset += 4) {
                unsigned long long const address = near + static_cast<unsigned long long>(offset);
                if (at(address) == "v!" && at(address - 1) == "-" && at(address + 3) == "v!" &&
                    at(address + 4) == "-") {
                    return address;
                }
            }
        }
        return 0;
    }

private:
    Assembled m_file;
    SymMgrObjectPtr<IModuleSymbolBank> m_bank;
    SymMgrObjectPtr<IStackFrameContext> m_context;
    SymMgrObjectPtr<ISymbol> m_symbol;
};

/// One variable in a function.
std::string oneVariable() { return function(block(".byte 0x56")) + variable("v", block(".byte 0x91, 8")) + k_end; }

DwarfText withUnit(std::string const& entries, std::string const& locations = "") {
    DwarfText text = stackText();
    text.unit({3, 8, false}, entry(1, "a.c") + ".8byte code\n" + base("int", "int", 4) + entries + k_end);
    text.section(".debug_loc", ".Lloc:\n" + locations);
    return text;
}

} // namespace

TEST(StackVariable, FormsOfLocations) {
    std::string const list = ".4byte 0\n";
    std::string const fbreg = ".byte 0x91\n.sleb128 -16";
    struct Row {
        char const* name;
        std::string frame;
        std::string location;
        unsigned long long address; ///< 0: the variable is nowhere.
        int frameCode = 2;
        int locationCode = 4;
        std::string locations = "";
    };
    std::string const oneEntry = ".8byte 0x10, 0x20\n.2byte 9f - 8f\n8: .byte 0x77\n.sleb128 8\n9: .8byte 0, 0\n";
    for (Row const& row : {
             Row{"fbreg over breg6", block(".byte 0x76\n.sleb128 16"), block(fbreg), k_framePointer},
             Row{"fbreg over breg5", block(".byte 0x75\n.sleb128 16"), block(fbreg), k_framePointer},
             Row{"fbreg over breg7", block(".byte 0x77\n.sleb128 16"), block(fbreg), k_stackPointer},
             Row{"fbreg over breg4", block(".byte 0x74\n.sleb128 16"), block(fbreg), k_stackPointer},
             Row{"fbreg over reg6", block(".byte 0x56"), block(fbreg), k_framePointer - 16},
             Row{"fbreg over reg4", block(".byte 0x54"), block(fbreg), k_stackPointer - 16},
             Row{"fbreg over reg5, which is none", block(".byte 0x55"), block(".byte 0x91\n.sleb128 16"), 16},
             Row{"the call frame in a block", block(".byte 0x9c"), block(fbreg), k_framePointer - 16},
             Row{"the call frame in a list", list, block(fbreg), k_framePointer, 3, 4,
                 ".8byte 0, 0x40\n.2byte 1\n.byte 0x9c\n.8byte 0, 0\n"},
             Row{"a list", list, block(fbreg), k_stackPointer - 8, 3, 4, oneEntry},
             Row{"a list behind its entry", list, block(".byte 0x91\n.sleb128 16"), 16, 3, 4,
                 ".8byte 0x11, 0x20\n.2byte 1\n.byte 0x56\n.8byte 0, 0\n"},
             Row{"a list with a base", list, block(fbreg), k_framePointer - 16, 3, 4,
                 ".8byte -1, 0x1008, 8, 9\n.2byte 1\n.byte 0x56\n.8byte 0, 0\n"},
             Row{"an entry that ends at pc", list, block(".byte 0x91\n.sleb128 16"), 16, 3, 4,
                 ".8byte 0, 0x10\n.2byte 1\n.byte 0x56\n.8byte 0, 0\n"},
             Row{"a list that is not there", ".4byte 0x1000\n", block(".byte 0x91\n.sleb128 16"), 16, 3},
             Row{"a list that breaks off", list, block(".byte 0x91\n.sleb128 16"), 16, 3, 4,
                 ".8byte 0, 0x40\n.2byte 1000\n"},
             Row{"a variable in a list", block(""), list, k_stackPointer + 8, 2, 5, oneEntry},
             Row{"plus_uconst alone", block(""), block(".byte 0x23\n.uleb128 0x9000"), 0x9000},
             Row{"breg6", block(""), block(".byte 0x76\n.sleb128 -8"), k_framePointer - 8},
             Row{"only the first operation", block(".byte 0x56"), block(".byte 0x91, 8, 0x23, 4"), k_framePointer + 8},
             Row{"an exprloc", block(".byte 0x56"), ".uleb128 2\n.byte 0x91, 8\n", 0, 2, 6},
             Row{"an address", block(".byte 0x56"), block(".byte 3\n.8byte 0x9000"), 0},
             Row{"an empty block", block(".byte 0x56"), block(""), 0},
         }) {
        // One at address 0 would be found there: we ask no address below 4.
        FakeFrame frame(
            withUnit(function(row.frame, row.frameCode) + variable("v", row.location, "int", row.locationCode) + k_end,
                     row.locations));
        EXPECT_EQ(frame.find(), row.address) << row.name;
    }
}

TEST(StackVariable, OfDwarf4HasNoPlace) {
    // The end is a distance there, and is compared as it stands.
    FakeFrame frame(withUnit(entry(19, "f") + ".8byte code\n.4byte 0x40\n.uleb128 1\n.byte 0x9c\n" +
                             variable("v", ".uleb128 2\n.byte 0x91, 8\n", "int", 6) + k_end));
    LogCapture const log;
    EXPECT_EQ(frame.at(k_framePointer + 8), "?");
    EXPECT_EQ(log.count("Address range did not match subprogram,  address:4112 low: 4096 high: 64 func: f"), 1U);
}

TEST(StackVariable, WhichOneIsTaken) {
    std::string const at8 = block(".byte 0x91, 8");
    std::string const at16 = block(".byte 0x91, 16");
    std::string const at32 = block(".byte 0x91, 32");
    // By its symbol the function is longer than by its entry.
    FakeFrame frame(withUnit(".Lorigin: " + variable("named", at32) + function(block(".byte 0x56")) +
                             variable("parameter", at8, "int", 20) + ".uleb128 7\n" + variable("first", at8) + k_end +
                             ".uleb128 7\n" + variable("second", at8) + variable("in", at16) + k_end +
                             ".uleb128 18\n.4byte .Lorigin - .Lunit0\n" + block(".byte 0x91, 24") +
                             variable("unsized", block(".byte 0x91, 40"), "none") + k_end + entry(2, "next") +
                             ".8byte code + 0x60, code + 0x70\n" + block("") + k_end + ".Lt_none: .byte 0\n"),
                    ".text\n.globl f\n.type f, @function\n.set f, code\n.size f, 0x60\n");
    EXPECT_EQ(frame.at(k_framePointer + 8), "first!"); // whichever block holds pc
    EXPECT_EQ(frame.at(k_framePointer + 16), "in!");
    EXPECT_EQ(frame.at(k_framePointer + 24), "named!");
    EXPECT_EQ(frame.at(k_framePointer + 32), "-");
    EXPECT_EQ(frame.at(k_framePointer + 40), "unsized");
    EXPECT_EQ(frame.at(k_framePointer + 41), "-");
    // Both ends of the function's entry count as inside, and its symbol's end does not.
    EXPECT_EQ(frame.at(k_framePointer + 17, 0x1000), "in!");
    EXPECT_EQ(frame.at(k_framePointer + 18, 0x1040), "in!");
    EXPECT_EQ(frame.at(k_framePointer + 19, 0x1041), "?");
    RangeIterator ranges;
    frame.at(k_framePointer + 16);
    EXPECT_EQ(frame.symbol()->kind(), symbol_kind_Data);
    frame.symbol()->ranges(ranges);
    EXPECT_FALSE(ranges);
    EXPECT_EQ(frame.ask(0x1010, k_framePointer + 16, nullptr), status_Ok);
    // An answer is kept by frame and address: another instruction gets it too, and another frame does not.
    EXPECT_EQ(frame.at(k_framePointer + 8, 0x1020), "first!");
    frame.context().setRegister(1, 0);
    EXPECT_EQ(frame.at(k_framePointer + 8), "-");
    frame.context().setRegister(2, 77);
    EXPECT_EQ(frame.context().getRegister(2), 0U);
}

TEST(StackVariable, TypesAndMembers) {
    std::string const types =
        base("unsigned", "unsigned int", 4) + base("short", "short", 2) + base("char", "char", 1) +
        base("print", "print", 4) + base("nameless", "", 4) + ".Lt_inner: " + entry(9, "inner") + ".2byte 8\n" +
        entry(10, "a") + ".4byte .Lt_int - .Lunit0\n.byte 0\n" + entry(11, "b") + ".4byte .Lt_short - .Lunit0\n" +
        block(".byte 0x23, 4") + k_end + ".Lt_alias: .uleb128 15\n.4byte .Lt_inner - .Lunit0\n" +
        ".Lt_constant: .uleb128 16\n.4byte .Lt_inner - .Lunit0\n.Lt_count: .uleb128 15\n.4byte .Lt_int - .Lunit0\n" +
        ".Lt_union: " + entry(17, "u") + ".2byte 8\n" + entry(10, "x") + ".4byte .Lt_inner - .Lunit0\n.byte 0\n" +
        entry(10, "y") + ".4byte .Lt_int - .Lunit0\n.byte 0\n" + k_end + ".Lt_array: .uleb128 13\n.4byte .Lt_int - " +
        ".Lunit0\n.uleb128 14\n.sleb128 2\n.uleb128 14\n.sleb128 4\n.byte 0\n.Lt_huge: .uleb128 13\n.4byte .Lt_int - " +
        ".Lunit0\n.uleb128 14\n.sleb128 0x7ffffffffffffffe\n.byte 0\n.Lt_self: " + entry(9, "self") + ".2byte 8\n" +
        entry(10, "again") + ".4byte .Lt_self - .Lunit0\n.byte 0\n" + k_end +
        ".Lt_ring: .uleb128 15\n.4byte .Lt_ring2 " +
        "- .Lunit0\n.Lt_ring2: .uleb128 15\n.4byte .Lt_ring - .Lunit0\n.Lt_outer: " + entry(9, "outer") +
        ".2byte 24\n" + entry(10, "n") + ".4byte .Lt_inner - .Lunit0\n.byte 8\n" + entry(10, "m") +
        ".4byte .Lt_alias - .Lunit0\n.byte 16\n" + k_end + ".Lt_holder: " + entry(9, "holder") + ".2byte 8\n" +
        entry(10, "h") + ".4byte .Lt_union - .Lunit0\n.byte 0\n" + k_end + ".Lt_single: .uleb128 13\n" +
        ".4byte .Lt_int - .Lunit0\n.uleb128 14\n.sleb128 0\n.byte 0\n";
    auto const at = [](int offset) { return block(".byte 0x91\n.sleb128 " + number(offset)); };
    struct Row {
        char const* type;
        int offset; ///< From the variable's start.
        std::string wanted;
    };
    std::string again = "v";
    for (int i = 0; i < 64; ++i) {
        again += "::again";
    }
    for (Row const& row : {
             Row{"int", 0, "v!"},         Row{"unsigned", 3, "v!"},   Row{"short", 1, "v!"}, Row{"char", 0, "v"},
             Row{"print", 0, "v"},        Row{"nameless", 0, "v"},    Row{"count", 3, "v!"}, Row{"inner", 0, "v::a"},
             Row{"inner", 5, "v::b"},     Row{"inner", 6, "v"},       Row{"inner", 8, "-"},  Row{"alias", 4, "v::b"},
             Row{"constant", 4, "v::b"},  Row{"union", 4, "v::x::b"}, Row{"array", 59, "v"}, Row{"array", 60, "-"},
             Row{"huge", 1000, "v"},      Row{"self", 0, again},      Row{"ring", 0, "v"},   Row{"ring", 1, "-"},
             Row{"outer", 12, "v::n::b"}, Row{"outer", 20, "v::m"},   Row{"outer", 4, "v"},  Row{"holder", 4, "v::h"},
             Row{"single", 0, "v"},       Row{"single", 1, "-"},
         }) {
        FakeFrame frame(withUnit(types + function(block(".byte 0x56")) + variable("v", at(16), row.type) + k_end));
        EXPECT_EQ(frame.at(k_framePointer + 16 + static_cast<unsigned int>(row.offset)), row.wanted)
            << row.type << " + " << row.offset;
    }
}

TEST(StackVariable, ManyThatShareWhatIsLong) {
    // Each of 7,000 variables looks at ten entries of one list, each of 2,000 at a chain of types that has no end: more
    // than a small file may ask for, and still the last one is found, by the first question too.
    std::string const many = ".rept 7000\n" + variable("x", ".4byte 0\n", "int", 5) + ".endr\n.rept 2000\n" +
                             variable("y", block(".byte 0x91, 1"), "ring") + ".endr\n";
    DwarfText text = withUnit(".Lt_ring: .uleb128 21\n.4byte .Lt_ring - .Lunit0\n.fill 20000, 1, 0\n" +
                                  function(block(".byte 0x56")) + many +
                                  variable("last", ".4byte .Llast - .Lloc\n", "int", 5) + k_end,
                              ".rept 10\n.8byte 0x20, 0x28\n.2byte 0\n.endr\n.8byte 0, 0\n.fill 80000, 1, 0\n"
                              ".Llast: .8byte 0, 0x40\n.2byte 2\n.byte 0x91, 8\n.8byte 0, 0\n");
    DwarfText::Specs ring = {{DW_AT_type, DW_FORM_ref4}};
    ring.insert(ring.end(), 20000, {0x2001, DW_FORM_data1});
    text.abbrev(21, DW_TAG_typedef, false, ring);
    FakeFrame frame(text);
    EXPECT_EQ(frame.at(k_framePointer + 8), "last!");
    EXPECT_EQ(frame.at(k_framePointer + 1), "y");
}

TEST(StackVariable, WhatCannotBeAsked) {
    FakeFrame frame(withUnit(oneVariable()));
    EXPECT_EQ(frame.at(k_framePointer + 8, 0x1800), "-"); // no function stands there
    SymMgrObjectPtr<ISymbol> symbol;
    SymMgrObjectPtr<IStackFrameContext> context = IStackFrameContext::create();
    SymMgrObjectPtr<IStackFrameContext> none;
    Assembled const plain(".text\n.globl code\n.type code, @function\ncode: .fill 0x40, 1, 0x90\n.size code, 0x40\n");
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    ASSERT_EQ(loadBank(plain.path(), bank), status_Ok);
    for (auto& given : {context, none}) {
        SymMgrObjectPtr<IStackFrameContext> asked = given;
        EXPECT_EQ(bank->findStackVariable(addressIn(*bank, 0x1010).get(), 8, asked, symbol, nullptr), status_False);
    }
    // A symbol of another loader, and none.
    PlainDebugInfo other(frame.path());
    SymMgrObjectPtr<ISymbolRange> const range = rangeIn(frame.bank(), 0x1010, symbol_kind_Function);
    for (ISymbol* const function : {range->symbol(), static_cast<ISymbol*>(nullptr)}) {
        EXPECT_EQ(other.loader().findStackVariable(function, 0x1010, 8, context, symbol, nullptr), status_Fail);
    }
}

TEST(StackVariable, StaticVariablesHaveTheirMembersInside) {
    std::string const types =
        ".Lt_inner: " + entry(9, "inner") + ".2byte 8\n" + entry(10, "a") + ".4byte .Lt_int - .Lunit0\n.byte 0\n" +
        entry(10, "b") + ".4byte .Lt_int - .Lunit0\n.byte 4\n" + k_end + ".Lt_outer: " + entry(9, "outer") +
        ".2byte 14\n" + entry(10, "n") + ".4byte .Lt_inner - .Lunit0\n.byte 0\n" + entry(10, "last") +
        ".4byte .Lt_inner - .Lunit0\n.byte 8\n" + k_end + ".Lt_alias: .uleb128 15\n.4byte .Lt_outer - .Lunit0\n";
    auto const at = [](int offset) { return block(".byte 3\n.8byte code + " + number(offset)); };
    Assembled const module(
        withUnit(types + variable("s", at(0x100), "outer") + variable("t", at(0x200), "alias")).source());
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    ASSERT_EQ(loadBank(module.path(), bank), status_Ok);
    auto const inside = [&](unsigned long long address) {
        SymMgrObjectPtr<ISymbolRange> const range = rangeIn(*bank, address, symbol_kind_Data);
        RangeIterator members;
        range->innerRanges(members);
        std::string text = allRanges(members);
        SymMgrObjectPtr<ISymbolRange> member;
        range->innerRangeByAddress(member, addressIn(*bank, address).get());
        if (member) {
            member->innerRanges(members);
            text += "; " + allRanges(members);
        }
        return text;
    };
    // The last one ends with the variable.
    EXPECT_EQ(inside(0x1105), "n[4352,4360) last[4360,4366); a[4352,4356) b[4356,4360)");
    EXPECT_EQ(inside(0x1205), ""); // another name for a structure is not looked through here
}

TEST(StackVariable, EachOfManyStaticVariablesHasItsMembers) {
    constexpr int k_variables = 3000;
    constexpr int k_members = 60;
    std::string type = ".Lt_large: " + entry(9, "large") + ".2byte 240\n";
    for (int i = 0; i < k_members; ++i) {
        type += entry(10, "m") + ".4byte .Lt_int - .Lunit0\n.byte " + number(i * 4) + "\n";
    }
    Assembled const module(withUnit(type + k_end + ".set at, 0\n.rept " + number(k_variables) + "\n" +
                                    variable("s", block(".byte 3\n.8byte code + at"), "large") +
                                    ".set at, at + 1\n.endr\n")
                               .source());
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    ASSERT_EQ(loadBank(module.path(), bank), status_Ok);
    RangeIterator ranges;
    bank->originalSymbolRanges(ranges, symbol_kind_Data, nullptr, nullptr);
    int whole = 0;
    forEach(ranges, [&](ISymbolRange& range) {
        RangeIterator members;
        range.innerRanges(members);
        int count = 0;
        forEach(members, [&](ISymbolRange&) { ++count; });
        whole += count == k_members ? 1 : 0;
    });
    EXPECT_EQ(whole, k_variables);
}

TEST(StackVariable, OutlivesItsBank) {
    // Another bank on the same file keeps the loaders; the variable must not lead back to the bank that is gone.
    Assembled const module(withUnit(oneVariable()).source());
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    SymMgrObjectPtr<IModuleSymbolBank> keeper;
    ASSERT_EQ(loadBank(module.path(), bank), status_Ok);
    ASSERT_EQ(loadBank(module.path(), keeper, load_flags_NoDebugInfo), status_Ok);
    SymMgrObjectPtr<IAddress> const where = addressIn(*bank, 0x1010);
    SymMgrObjectPtr<ISymbol> symbol;
    SymMgrObjectPtr<IStackFrameContext> context = IStackFrameContext::create();
    ASSERT_EQ(bank->findStackVariable(where.get(), 8, context, symbol, nullptr), status_Ok);
    bank.reset();
    SymMgrObjectPtr<ISourceLine> line;
    LineIterator lines;
    symbol->sourceLine(line);
    symbol->sourceLines(lines);
    symbol->sourceLineByAddress(line, where.get());
    EXPECT_STREQ(symbol->name(), "v");
}

TEST(StackVariable, OneVariableIsOneSymbol) {
    // Two inlined copies leave two of one name side by side.
    FakeFrame frame(withUnit(function(block(".byte 0x56")) + variable("v", block(".byte 0x91, 8")) +
                             variable("v", block(".byte 0x91, 12")) + k_end));
    std::map<unsigned long long, SymMgrObjectPtr<ISymbol>> found;
    for (unsigned long long const at : {9, 14, 8, 11, 12, 10, 15, 13}) {
        ASSERT_EQ(frame.at(k_framePointer + at), "v!") << at;
        found[at] = frame.symbol();
    }
    for (auto const& [at, symbol] : found) {
        EXPECT_EQ(symbol.get(), found[at < 12 ? 8 : 12].get()) << at;
    }
    EXPECT_NE(found[8].get(), found[12].get());
}
