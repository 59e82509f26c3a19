// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Stack variables: each form of a location, types and members, from assembler text.

#include "support/orv_stack_text.h"

using namespace orv_test;

TEST(StackVariable, FormsOfLocations) {
    auto const frameBase = [](std::string const& bytes) { return block(DW_AT_frame_base, bytes); };
    Attr const baseList = {DW_AT_frame_base, DW_FORM_data4, "0"};
    Attr const lostList = {DW_AT_frame_base, DW_FORM_data4, "0x1000"};
    Attr const expression = {DW_AT_location, DW_FORM_exprloc, ".byte 0x91, 8"};
    Attr const framePointer = frameBase(".byte 0x56");
    struct Row {
        char const* name;
        Attr frame;
        Attr location;
        unsigned long long address; ///< 0: the variable is nowhere.
        std::string locations = "";
    };
    std::string const oneEntry = ".8byte 0x10, 0x20\n.2byte 9f - 8f\n8: .byte 0x77\n.sleb128 8\n9: .8byte 0, 0\n";
    for (Row const& row : {
             Row{"fbreg over breg6", frameBase(".byte 0x76\n.sleb128 16"), placed(-16), k_framePointer},
             Row{"fbreg over breg5", frameBase(".byte 0x75\n.sleb128 16"), placed(-16), k_framePointer},
             Row{"fbreg over breg7", frameBase(".byte 0x77\n.sleb128 16"), placed(-16), k_stackPointer},
             Row{"fbreg over breg4", frameBase(".byte 0x74\n.sleb128 16"), placed(-16), k_stackPointer},
             Row{"fbreg over reg6", framePointer, placed(-16), k_framePointer - 16},
             Row{"fbreg over reg4", frameBase(".byte 0x54"), placed(-16), k_stackPointer - 16},
             Row{"fbreg over reg5, which is none", frameBase(".byte 0x55"), placed(16), 16},
             Row{"the call frame in a block", frameBase(".byte 0x9c"), placed(-16), k_framePointer - 16},
             Row{"the call frame in a list", baseList, placed(-16), k_framePointer,
                 ".8byte 0, 0x40\n.2byte 1\n.byte 0x9c\n.8byte 0, 0\n"},
             Row{"a list", baseList, placed(-16), k_stackPointer - 8, oneEntry},
             Row{"a list behind its entry", baseList, placed(16), 16,
                 ".8byte 0x11, 0x20\n.2byte 1\n.byte 0x56\n.8byte 0, 0\n"},
             Row{"a list with a base", baseList, placed(-16), k_framePointer - 16,
                 ".8byte -1, 0x1008, 8, 9\n.2byte 1\n.byte 0x56\n.8byte 0, 0\n"},
             Row{"an entry that ends at pc", baseList, placed(16), 16,
                 ".8byte 0, 0x10\n.2byte 1\n.byte 0x56\n.8byte 0, 0\n"},
             Row{"a list that is not there", lostList, placed(16), 16},
             Row{"a list that breaks off", baseList, placed(16), 16, ".8byte 0, 0x40\n.2byte 1000\n"},
             Row{"a variable in a list", frameBase(""), placeList("0"), k_stackPointer + 8, oneEntry},
             Row{"plus_uconst alone", frameBase(""), place(".byte 0x23\n.uleb128 0x9000"), 0x9000},
             Row{"breg6", frameBase(""), place(".byte 0x76\n.sleb128 -8"), k_framePointer - 8},
             Row{"only the first operation", framePointer, place(".byte 0x91, 8, 0x23, 4"), k_framePointer + 8},
             Row{"an exprloc", framePointer, expression, 0},
             Row{"an address", framePointer, place(".byte 3\n.8byte 0x9000"), 0},
             Row{"an empty block", framePointer, place(""), 0},
         }) {
        // One at address 0 would be found there: we ask no address below 4.
        FakeFrame frame(withUnit(function(variable("v", row.location), row.frame), row.locations));
        EXPECT_EQ(frame.find(), row.address) << row.name;
    }
}

TEST(StackVariable, OfDwarf4HasNoPlace) {
    // The end is a distance there, and is compared as it stands.
    FakeFrame frame(withUnit(entry(DW_TAG_subprogram,
                                   {nameAttr("f"),
                                    lowAttr(0),
                                    {DW_AT_high_pc, DW_FORM_data4, "0x40"},
                                    {DW_AT_frame_base, DW_FORM_exprloc, ".byte 0x9c"}},
                                   variable("v", {DW_AT_location, DW_FORM_exprloc, ".byte 0x91, 8"}))));
    LogCapture const log;
    EXPECT_EQ(frame.at(k_framePointer + 8), "?");
    EXPECT_EQ(log.count("Address range did not match subprogram,  address:4112 low: 4096 high: 64 func: f"), 1U);
}

TEST(StackVariable, WhichOneIsTaken) {
    // By its symbol the function is longer than by its entry.
    std::string const next = entry(
        DW_TAG_subprogram,
        {nameAttr("next"), lowAttr(0x60), {DW_AT_high_pc, DW_FORM_addr, "code + 0x70"}, block(DW_AT_frame_base, "")},
        "");
    FakeFrame frame(
        withUnit(
            ".Lorigin: " + variable("named", placed(32)) +
            function(variable("parameter", placed(8), "int", k_parameterTag) +
                     entry(DW_TAG_lexical_block, {}, variable("first", placed(8))) +
                     entry(DW_TAG_lexical_block, {}, variable("second", placed(8)) + variable("in", placed(16))) +
                     entry(DW_TAG_variable, {{DW_AT_abstract_origin, DW_FORM_ref4, ".Lorigin - .Lunit0"}, placed(24)}) +
                     variable("unsized", placed(40), "none")) +
            next + ".Lt_none: .byte 0\n"),
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
        base("print", "print", 4) + base("nameless", "", 4) +
        structure("inner", 8,
                  member("a", "int", 0) + entry(DW_TAG_member, {nameAttr("b"), typeAttr("short"),
                                                                block(DW_AT_data_member_location, ".byte 0x23, 4")})) +
        otherName("alias", "inner") + otherName("constant", "inner", DW_TAG_const_type) + otherName("count", "int") +
        structure("union", 8, member("x", "inner", 0) + member("y", "int", 0), DW_TAG_union_type) +
        array("array", {"2", "4"}) + array("huge", {"0x7ffffffffffffffe"}) + array("single", {"0"}) +
        structure("self", 8, member("again", "self", 0)) + otherName("ring", "ring2") + otherName("ring2", "ring") +
        structure("outer", 24, member("n", "inner", 8) + member("m", "alias", 16)) +
        structure("holder", 8, member("h", "union", 0));
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
        FakeFrame frame(withUnit(types + function(variable("v", placed(16), row.type))));
        EXPECT_EQ(frame.at(k_framePointer + 16 + static_cast<unsigned int>(row.offset)), row.wanted)
            << row.type << " + " << row.offset;
    }
}

TEST(StackVariable, ManyThatShareWhatIsLong) {
    // Each of 7,000 variables looks at ten entries of one list, each of 2,000 at a chain of types that has no end: more
    // than a small file may ask for, and still the last one is found, by the first question too.
    std::string const many = ".rept 7000\n" + variable("x", placeList("0")) + ".endr\n.rept 2000\n" +
                             variable("y", placed(1), "ring") + ".endr\n";
    DwarfText text = withUnit(".Lt_ring: .uleb128 21\n.4byte .Lt_ring - .Lunit0\n.fill 20000, 1, 0\n" +
                                  function(many + variable("last", placeList(".Llast - .Lloc"))),
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
    auto const bank = bankOf(plain.path());
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
    std::string const types = structure("inner", 8, member("a", "int", 0) + member("b", "int", 4)) +
                              structure("outer", 14, member("n", "inner", 0) + member("last", "inner", 8)) +
                              otherName("alias", "outer");
    Assembled const module(
        withUnit(types + variable("s", staticPlace("0x100"), "outer") + variable("t", staticPlace("0x200"), "alias"))
            .source());
    auto const bank = bankOf(module.path());
    auto const inside = [&](unsigned long long address) {
        SymMgrObjectPtr<ISymbolRange> const range = rangeIn(*bank, address, symbol_kind_Data);
        std::string text = symbolsIn(*range);
        SymMgrObjectPtr<ISymbolRange> member;
        range->innerRangeByAddress(member, addressIn(*bank, address).get());
        text += member ? "; " + symbolsIn(*member) : "";
        return text;
    };
    // The last one ends with the variable.
    EXPECT_EQ(inside(0x1105), "n[4352,4360) last[4360,4366); a[4352,4356) b[4356,4360)");
    EXPECT_EQ(inside(0x1205), ""); // another name for a structure is not looked through here
}

TEST(StackVariable, EachOfManyStaticVariablesHasItsMembers) {
    constexpr int k_variables = 3000;
    constexpr int k_members = 60;
    std::string members;
    for (int i = 0; i < k_members; ++i) {
        members += member("m", "int", i * 4);
    }
    Assembled const module(withUnit(structure("large", 240, members) + ".set at, 0\n.rept " + number(k_variables) +
                                    "\n" + variable("s", staticPlace("at"), "large") + ".set at, at + 1\n.endr\n")
                               .source());
    auto const bank = bankOf(module.path());
    RangeIterator ranges;
    bank->originalSymbolRanges(ranges, symbol_kind_Data, nullptr, nullptr);
    int whole = 0;
    forEach(ranges, [&](ISymbolRange& range) {
        RangeIterator inner;
        range.innerRanges(inner);
        int count = 0;
        forEach(inner, [&](ISymbolRange&) { ++count; });
        whole += count == k_members ? 1 : 0;
    });
    EXPECT_EQ(whole, k_variables);
}

TEST(StackVariable, OutlivesItsBank) {
    // Another bank on the same file keeps the loaders; the variable must not lead back to the bank that is gone.
    Assembled const module(withUnit(oneVariable()).source());
    auto const manager = symbolManager();
    auto bank = bankOf(module.path());
    auto const keeper = bankOf(module.path(), load_flags_NoDebugInfo);
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
    FakeFrame frame(withUnit(function(variable("v", placed(8)) + variable("v", placed(12)))));
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
