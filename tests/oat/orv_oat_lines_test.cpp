// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Lines of native code out of mapping tables and debug programs, and files at random against what their texts say.

#include "support/orv_oat_model.h"
#include "support/orv_oat_random.h"
#include "support/orv_oat_reading.h"
#include "symbols/orv_symboltable.h"

#include <algorithm>
#include <tuple>

using namespace orv_test;

namespace {

/// What a table gives of these symbols, one after the other.
std::string symbolsOf(OatExpectation const& wanted) {
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    SymMgrObjectPtr<IFileFormatLoader> const loader = emptyLoader();
    for (OatSymbolRow const& row : wanted.symbols) {
        SymbolScope* const scope = createSymbolScope(*loader, row.name.c_str(), row.address, nullptr,
                                                     symbol_visibility_Local, symbol_kind_Function);
        asScope(scope)->addRange(row.address, row.address + row.size);
        table->addRange(row.address, row.address + row.size, asScope(scope));
    }
    RangeIterator ranges;
    table->symbolRanges(ranges, 0, ~0ULL, symbol_kind_Function);
    return allRanges(ranges);
}

/// The lines in the order in which a table gives them: by file, start and number.
std::string linesOf(OatExpectation const& wanted) {
    using Row = std::tuple<std::string, std::uint64_t, std::uint32_t, std::uint64_t>;
    std::vector<Row> rows;
    for (OatLineRow const& row : wanted.rows) {
        rows.emplace_back(row.file, row.address, row.line, static_cast<std::uint32_t>(row.length)); // as lines tell it
    }
    std::reverse(rows.begin(), rows.end()); // of equal ones the last is first
    std::stable_sort(rows.begin(), rows.end(), [](Row const& a, Row const& b) {
        return std::tie(std::get<0>(a), std::get<1>(a), std::get<2>(a)) <
               std::tie(std::get<0>(b), std::get<1>(b), std::get<2>(b));
    });
    std::ostringstream text;
    for (auto const& [file, start, line, size] : rows) {
        text << (text.tellp() > 0 ? " " : "") << file << ':' << line << '[' << start << ',' << start + size << ')';
    }
    return text.str();
}

} // namespace

// --- Lines

namespace {

/// The lines of a method of 16 bytes.
std::string methodLines(std::string const& mapping, std::string const& program, std::string const& version = "22") {
    std::string const text = "dex\nclass X\n  method direct f()V code=16\n" +
                             (mapping.empty() ? "" : "    " + mapping + '\n') + "    insns 500\n    debug " + program +
                             '\n';
    OatFile const file = writeOat(withHead(version, text));
    Reader reader(file);
    reader.load();
    unsigned long long const start = file.places.at("dex0.class0.method0.code");
    std::string lines = reader.lines();
    // Relative to the method's start.
    std::string out;
    for (std::size_t at = 0; at < lines.size();) {
        if (std::isdigit(static_cast<unsigned char>(lines[at])) != 0 && at > 0 &&
            (lines[at - 1] == '[' || lines[at - 1] == ',')) {
            std::size_t count = 0;
            out += std::to_string(static_cast<long long>(std::stoull(lines.substr(at), &count) - start));
            at += count;
        } else {
            out += lines[at++];
        }
    }
    return out;
}

} // namespace

TEST(OatLines, AnInstructionHasTheLineInForceAtItsDexInstruction) {
    struct Case {
        char const* name;
        std::string lines;
        char const* wanted;
    } const cases[] = {
        {"between two lines the earlier one", methodLines("map 0:0 4:4", "10 : step 0 0; step 6 1; end"),
         "X.java:10[0,1) X.java:10[1,4) X.java:10[4,5) X.java:10[5,16)"},
        {"behind the last line nothing of its own", methodLines("map 0:0 4:9", "10 : step 0 0; end"),
         "X.java:10[0,1) X.java:10[1,16)"},
        {"in front of the first line nothing of its own", methodLines("map 0:0 4:2", "10 : pc 1; step 1 0; end"),
         "X.java:10[0,4) X.java:10[4,5) X.java:10[5,16)"},
        {"no table", methodLines("", "10 : step 0 0; step 1 1; end"), "X.java:10[0,16)"},
        {"no line", methodLines("map 0:0", "10 : pc 1; line 1; end"), ""},
        {"two tables, one count of DEX instructions",
         methodLines("map 0:0 2:3\n    dex2native 9:3", "10 : step 0 0; step 3 5; end"),
         "X.java:10[0,1) X.java:10[1,2) X.java:15[2,3) X.java:10[3,9) X.java:15[9,10) X.java:10[10,16)"},
        {"a table whose parts are more than the whole", methodLines("map 0:0 4:2\n    total 1", "10 : step 0 0; end"),
         "X.java:10[0,16)"},
        {"special opcodes at their ends", methodLines("map 0:0 4:16", "10 : special 10; special 255; end"),
         "X.java:6[0,1) X.java:6[1,4) X.java:7[4,5) X.java:6[5,16)"},
        {"files", methodLines("map 0:0 4:1 8:2", "10 : step 0 0; file Y.java; step 1 0; file @9999; step 1 0; end"),
         "X.java:10[0,1) Y.java:10[1,4) Y.java:10[4,5) Y.java:10[5,8) Y.java:10[8,9) Y.java:10[9,16)"},
        {"no file ends the program", methodLines("map 0:0 4:1", "10 : step 0 0; file @0; step 1 1; end"),
         "X.java:10[0,1) X.java:10[1,16)"},
        {"locals and the like are passed over",
         methodLines("map 0:0 4:1", "10 : local 1 2 3; localx 300 2 3 4; endlocal 1; restart 1; prologue; epilogue; "
                                    "step 0 0; step 1 1; end"),
         "X.java:10[0,1) X.java:10[1,4) X.java:11[4,5) X.java:10[5,16)"},
        {"lines go up and down", methodLines("map 0:0 4:1", "10 : line -9; step 0 0; line 1000000; step 1 0; end"),
         "X.java:1[0,1) X.java:1[1,4) X.java:1000001[4,5) X.java:1[5,16)"},
        {"signed deltas", methodLines("map 0:5 4:2", "10 : step 2 0; step 3 1; end", "15"),
         "X.java:11[0,1) X.java:10[1,4) X.java:10[4,5) X.java:10[5,16)"},
    };
    for (Case const& one : cases) {
        EXPECT_EQ(one.lines, one.wanted) << one.name;
    }
}

TEST(OatLines, DeltasOfTheFirstVersionHaveNoSign) {
    // 0x7e is 126, and -2 where there is a sign.
    std::string const program = "10 : pc 126; step 0 0; end";
    EXPECT_EQ(methodLines("rawmap 0101007e", program, "7"), "X.java:10[0,1) X.java:10[1,16)");
    EXPECT_EQ(methodLines("rawmap 0101007e", program, "14"), "X.java:10[0,16)");
}

TEST(OatLines, NumbersHave32Bits) {
    // 2^32 + 1 pairs of which 1, and the second pair of a table is not read.
    EXPECT_EQ(methodLines("rawmap 8180808010010004040004", "10 : step 0 0; step 4 1; end"),
              "X.java:11[0,1) X.java:10[1,16)");
    EXPECT_EQ(methodLines("map 0:0", "10 : raw 098080808010; step 0 0; end"), ""); // no file
    EXPECT_EQ(methodLines("map 0:0 4:2", "10 : raw 0280808080808080808001; step 0 0; step 2 0; end"),
              "X.java:10[0,1) X.java:10[1,4) X.java:10[4,5) X.java:10[5,16)"); // ten bytes for 0
}

TEST(OatLines, AreThereOnceHoweverOftenSymbolsAreLoaded) {
    OatFile const file = writeOat(withHead("22", k_smallOat));
    Reader reader(file);
    EXPECT_EQ(reader.load(), status_Ok);
    std::string const lines = reader.lines();
    std::string const symbols = reader.symbols();
    EXPECT_EQ(reader.load(), status_Ok);
    EXPECT_EQ(reader.lines(), lines);
    EXPECT_EQ(reader.symbols(), symbols);
    EXPECT_EQ(reader.resolver().sourceFileCount(), 0U);
    LogCapture const log(30000);
    EXPECT_EQ(reader.resolver().sourceFileById(1), nullptr);
    EXPECT_EQ(log.count("Invalid source file id: 1"), 1U);
    EXPECT_EQ(Reader(file).load(false), status_InvalidPointer); // a method with lines that nobody takes
}

TEST(OatLines, WhatIsReadIsLogged) {
    LogCapture const log(20000);
    OatFile const file = writeOat(withHead("22", "dex\nclass X\n  method direct f()V code=32\n    map 10:10\n"
                                                 "    dex2native 11:0\n    debug 26 : step 16 0; file @0; end\n"));
    Reader(file).load();
    std::ostringstream start;
    start << std::hex << file.places.at("dex0.class0.method0.code");
    std::ostringstream offset;
    offset << std::hex << file.places.at("dex0.class0.method0.code") + 10;
    for (std::string const& text :
         {std::string("OAT file version 22"), std::string("Creating new dex method with index: 0"),
          "Dex method: X.f offset: 0x" + start.str() + " size: 32",
          std::string("Reading dex to native mapping table ..."), std::string("Mapping table size: 2"),
          std::string("Native to dex table size: 1"), std::string("Dex to native table size: 1"),
          "     nativeToDex map: 0x0" + offset.str() + " - 0x0a", std::string("     Line to dex address: 26 - 0x10"),
          "Adding line to table: fileID=0 line=26 range: 0x" + start.str() + " - 0x20",
          std::string("Dex line machine: unknown opcode 9")}) {
        EXPECT_EQ(log.count(text), 1U) << text;
    }
}

TEST(OatModel, RandomFilesGiveWhatTheirTextsSay) {
    for (unsigned int seed = 1; seed <= 1500; ++seed) {
        std::string const text = randomOatText(seed, seed % 3 == 0 ? OatOddity::None : OatOddity::Some);
        OatDescription const description = parseOat(text);
        OatFile const file = writeOat(description);
        OatExpectation const wanted = expectOat(description, file);
        Reader reader(file);
        ASSERT_EQ(static_cast<std::uint32_t>(reader.load()), wanted.status) << seed << '\n' << text;
        ASSERT_EQ(reader.symbols(), symbolsOf(wanted)) << seed << '\n' << text;
        ASSERT_EQ(reader.lines(), linesOf(wanted)) << seed << '\n' << text;
    }
}

// --- What a load may cost

TEST(OatCosts, WhatIsSharedWithoutEndIsReadWithinBounds) {
    // A table of 20,000 pairs, which 300 methods share, and a small method behind them.
    std::string map = "    map";
    for (unsigned int i = 0; i < 20000; ++i) {
        map += " " + std::to_string(i) + ":0";
    }
    auto const textOf = [&](std::uint64_t table) {
        std::string text = "dex\nclass X\n  method direct a()V code=8\n" + map + "\n    debug 1 : step 0 0; end\n";
        for (unsigned int i = 0; i < 300; ++i) {
            text += "  method direct b" + std::to_string(i) + "()V code=8 mapword=" + std::to_string(table) +
                    "\n    debug 1 : step 0 0; end\n";
        }
        return "oat 7 base=0 exec=200000\n" +
               (text + "class Y\n  method direct z()V code=8\n    map 0:0\n    debug 7 : step 0 0; end\n");
    };
    OatFile const file = writeOat(textOf(writeOat(textOf(1)).places.at("dex0.class0.method0.map")));
    Reader reader(file);
    EXPECT_EQ(reader.load(), status_Ok);
    std::string const lines = reader.lines();
    auto const rows = static_cast<std::size_t>(std::count(lines.begin(), lines.end(), '['));
    EXPECT_GT(rows, 20000U);
    EXPECT_LT(rows, file.data.size());
    EXPECT_NE(lines.find("Y.java:7["), std::string::npos);
}
