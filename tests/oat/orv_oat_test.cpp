// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Android OAT files: which file is one, what its header must have, and what comes of classes and methods.

#include "support/orv_oat_reading.h"

#include <algorithm>
#include <random>

using namespace orv_test;

namespace {

/// The variable that turns the reading on, for as long as the object.
class Setting {
public:
    explicit Setting(char const* value = "1") { ::setenv("ORV_USE_LEGACY_OAT_READER", value, 1); }
    ~Setting() { ::unsetenv("ORV_USE_LEGACY_OAT_READER"); }
    Setting(Setting const&) = delete;
    Setting& operator=(Setting const&) = delete;
};

std::string symbolsOf(std::string const& text) {
    Reader reader(writeOat(text));
    reader.load();
    return reader.symbols();
}

} // namespace

// --- Which file is one

TEST(OatFiles, AreReadIfTheyAreAskedFor) {
    TempDir const folder;
    OatFile const oat = writeOat(withHead("22 at=0x2345", k_smallOat));
    std::string const path = folder.file("m.oat", oat.elf);
    {
        auto const bank = bankOf(path, load_flags_NewLoader);
        EXPECT_EQ(bank->symFileFormat(), 0U);
        EXPECT_EQ(orv_test::symbolsOf(*bank, symbol_kind_Function), "");
    }
    {
        Setting const empty("");
        EXPECT_EQ(bankOf(path, load_flags_NewLoader)->symFileFormat(), 0U);
    }
    Setting const set;
    auto const bank = bankOf(path, load_flags_NewLoader);
    EXPECT_EQ(bank->symFileFormat(), 5U);
    EXPECT_EQ(bank->symFileName(), path);
    unsigned long long const f = oat.places.at("dex0.class0.method0.code");
    EXPECT_EQ(symbolAt(*bank, f + 5), "a.Foo.f@" + (std::ostringstream() << std::hex << f << "+16").str());
    SymMgrObjectPtr<ISourceLocation> const place = placeIn(*bank, f + 4);
    ASSERT_TRUE(place);
    EXPECT_STREQ(place->sourceFile()->path(), "Foo.java");
    EXPECT_EQ(place->line(), 11U);
}

TEST(OatFiles, LinesCanBeAskedForFirst) {
    Setting const set;
    TempDir const folder;
    OatFile const oat = writeOat(withHead("22", k_smallOat));
    std::string const path = folder.file("m.oat", oat.elf);
    unsigned long long const f = oat.places.at("dex0.class0.method0.code");
    unsigned long long const g = oat.places.at("dex0.class0.method1.code");
    auto const lineAt = [](IModuleSymbolBank& bank, unsigned long long address) {
        SymMgrObjectPtr<ISourceLocation> const place = placeIn(bank, address);
        return place ? place->line() : 0;
    };
    EXPECT_EQ(lineAt(*bankOf(path, load_flags_NewLoader), f + 4), 11U);
    auto const bank = bankOf(path, load_flags_NewLoader);
    bank->prefetcher()->putPseudoAddress(f);
    EXPECT_EQ(lineAt(*bank, f + 8), 13U);
    EXPECT_EQ(lineAt(*bank, g), 0U); // nobody has asked for it
    bank->prefetcher()->putPseudoAddress(g);
    EXPECT_EQ(lineAt(*bank, g), 20U);
    EXPECT_EQ(lineAt(*bank, f + 8), 13U);
    SymMgrObjectPtr<ISymbol> const symbol(rangeIn(*bank, f + 3, symbol_kind_Function)->symbol());
    SymMgrObjectPtr<ISourceLine> line;
    ASSERT_EQ(symbol->sourceLine(line), status_Ok);
    EXPECT_EQ(line->location()->line(), 10U);
    EXPECT_EQ(startOf(*line), f);
    EXPECT_EQ(line->size(), 0U);
    LineIterator lines;
    symbol->sourceLines(lines);
    EXPECT_FALSE(lines);
}

TEST(OatFiles, GoToTheEndOfTheLastWord) {
    Setting const set;
    TempDir const folder;
    OatFile const oat = writeOat(withHead("22", "dex\nclass X\n  method direct f()V code=16 debugoff=end-4\n"
                                                "    debug 1 : step 0 0; end\ntail 07000e00\n"));
    auto const bank = bankOf(folder.file("m.oat", oat.elf), load_flags_NewLoader);
    SymMgrObjectPtr<ISourceLocation> const place = placeIn(*bank, oat.places.at("dex0.class0.method0.code") + 5);
    ASSERT_TRUE(place);
    EXPECT_EQ(place->line(), 7U);
}

TEST(OatFiles, AreFoundByTheirFirstSymbols) {
    struct Case {
        char const* name;
        std::string head;
        bool isFound;
    } const cases[] = {
        {"32 bits", "oat 22 elf32 base=0x4000 at=0x1000", true},
        {"ARM", "oat 22 elf32 machine=40", true},
        {"the last symbol is the fifth", "oat 22 decoys=1", true},
        {"the last symbol is the sixth", "oat 22 decoys=2", false},
    };
    Setting const set;
    for (Case const& one : cases) {
        TempDir const folder;
        OatFile const oat = writeOat(one.head + "\n" + k_smallOat);
        auto const bank = bankOf(folder.file("m.oat", oat.elf), load_flags_NewLoader);
        EXPECT_EQ(bank->symFileFormat(), one.isFound ? 5U : 0U) << one.name;
        EXPECT_EQ(orv_test::symbolsOf(*bank, symbol_kind_Function).find("a.Foo.g") != std::string::npos, one.isFound)
            << one.name;
    }
}

TEST(OatFiles, TheCandidateStaysWithTheModule) {
    Setting const set;
    TempDir const folder;
    std::string const path = folder.file("vmlinux", writeOat(withHead("7", k_smallOat)).elf);
    auto const loader = loaderOf(path);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    ASSERT_EQ(loader->symbolFiles(candidates), status_Ok);
    SymMgrObjectPtr<ISymbolFileToResolve> const first = candidates->current();
    EXPECT_EQ(first->validateSymbolFile("/no/such/file"), 0);
    EXPECT_EQ(first->validity(), symbolFileValid);
    EXPECT_EQ(first->symbolFileFormat(), symbolFormatOat);
    EXPECT_EQ(first->candidateClassFlag(), 1U);
    EXPECT_EQ(first->symbolFileName(), path);
    EXPECT_EQ(first->moduleFileName(), path);
    ASSERT_TRUE(candidates->next()); // no DWARF candidate, and the lists of a kernel
    EXPECT_EQ(candidates->current()->symbolFileFormat(), symbolFormatSystemMap);
}

TEST(OatFiles, DataThatCantBeReadGiveNoLoader) {
    Setting const set;
    TempDir const folder;
    OatFile const oat = writeOat(withHead("22", k_smallOat));
    std::string const path = folder.file("m.oat", oat.elf);
    auto const loader = loaderOf(path);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    ASSERT_EQ(loader->symbolFiles(candidates), status_Ok);
    std::filesystem::resize_file(path, oat.dataOffset + 100);
    LogCapture const log(40000);
    SymMgrObjectPtr<IDebugInfoLoader> reader;
    EXPECT_EQ(loader->debugInfoLoader(reader, 0, 0), status_Ok);
    EXPECT_FALSE(reader);
    EXPECT_EQ(log.count("ASSERTION FAILED: 'st==status_Ok'"), 1U);
}

// --- The header

TEST(OatHeader, AcceptsTheVersionsItKnows) {
    for (int version = 0; version < 40; ++version) {
        bool const isKnown = version == 7 || version == 14 || version == 15 || (version >= 22 && version <= 28);
        // One without a layout of its own is written as a neighbour, and renamed.
        OatFile file = writeOat(withHead(std::to_string(isKnown ? version : 22), k_smallOat));
        file.data.replace(file.places.at("version"), 4, (version < 10 ? "00" : "0") + std::to_string(version) + '\0');
        LogCapture const log(20000);
        Reader reader(file);
        EXPECT_EQ(reader.load(), isKnown ? status_Ok : status_UnsupportedFileVersion) << version;
        EXPECT_EQ(reader.symbols().empty(), !isKnown) << version;
        EXPECT_EQ(log.count("OAT file version " + std::to_string(version)), 1U);
        EXPECT_EQ(log.count("Unsupported version of OAT file"), isKnown ? 0U : 1U);
        EXPECT_EQ(log.count("Failed to read OAT header: Invalid format or unsupported version"), isKnown ? 0U : 1U);
    }
}

TEST(OatHeader, IsReadOnceAndKeepsTheDexFilesInFront) {
    OatFile file =
        writeOat(withHead("22", std::string(k_smallOat) + "dex\nclass a.Bar\n  method direct h()V code=8\n"));
    std::string bad = file.data;
    bad[file.places.at("dex1") + 6] = '6'; // "036"
    Reader reader(bad, file.dataAddress, file.execAddress);
    EXPECT_EQ(reader.load(), status_UnsupportedFileVersion);
    EXPECT_EQ(reader.symbols().find("a.Foo.f"), 0U);
    EXPECT_EQ(reader.symbols().find("a.Bar"), std::string::npos);
    EXPECT_EQ(reader.load(), status_Ok); // what the vector of DEX files gives
    bad[file.places.at("dex1") + 6] = '5';
    bad[file.places.at("dex1")] = 'D';
    LogCapture const log(30000);
    EXPECT_EQ(Reader(bad, file.dataAddress, file.execAddress).load(), status_False);
    EXPECT_EQ(log.count("Invalid or unsupported dex header"), 1U);
}

TEST(OatHeader, StatusesOfWhatIsWrong) {
    OatFile const file = writeOat(withHead("22", k_smallOat));
    auto const changed = [&](char const* place, std::uint64_t value, unsigned int width = 4) {
        std::string data = file.data;
        put(data, file.places.at(place), value, width);
        return data;
    };
    struct Case {
        char const* name;
        std::string data;
        status_t status;
    } const cases[] = {
        {"no magic", changed("magic", 'x', 1), status_BadFileFormat},
        {"nothing", "", status_InvalidPointer},
        {"no DEX file", changed("dexFileCount", 0), status_False},
        {"too many DEX files", changed("dexFileCount", 0xFFFFFFFF), status_BadFileFormat},
        {"a trailer without end", changed("trailerSize", 0xFFFFFFFF), status_BadFileFormat},
        {"a location without end", changed("dex0.locationSize", 0xFFFFFFFF), status_BadFileFormat},
        {"a DEX file behind the end", changed("dex0.dexFileOffset", file.data.size() - 111), status_BadFileFormat},
        {"code elsewhere", changed("executableOffset", 4095), status_Ok},
    };
    for (Case const& one : cases) {
        LogCapture const log(40000);
        EXPECT_EQ(Reader(one.data, file.dataAddress, file.execAddress).load(), one.status) << one.name;
        EXPECT_EQ(log.count("ASSERTION FAILED: 'm_oatDataExec->pseudoAddr() - m_oatDataStart->pseudoAddr() == "
                            "m_executableOffset'"),
                  one.status == status_Ok ? 1U : 0U)
            << one.name;
    }
}

// --- Classes and methods

TEST(OatClasses, TheBitmapsFirstByteDecides) {
    std::string const methods = [] {
        std::string text;
        for (char c = 'a'; c < 'k'; ++c) {
            text += std::string("  method direct ") + c + "()V code=16\n";
        }
        return text;
    }();
    auto const startsOf = [&](std::string const& type) {
        OatFile const file = writeOat(withHead("24", "dex\nclass X " + type + "\n" + methods));
        Reader reader(file);
        reader.load();
        std::string text;
        for (unsigned int entry = 0; entry < 10; ++entry) {
            auto const place = file.places.find("dex0.class0.method" + std::to_string(entry) + ".code");
            std::string const start = place == file.places.end() ? "-" : '[' + std::to_string(place->second) + ',';
            std::string const symbols = reader.symbols();
            text += ' ';
            for (std::size_t at = symbols.find(start); at != std::string::npos; at = symbols.find(start, at + 1)) {
                text += symbols[at - 1];
            }
        }
        return text;
    };
    EXPECT_EQ(startsOf("all"), " a b c d e f g h i j");
    EXPECT_EQ(startsOf("none"), "          ");
    // Bits 0 and 2: methods before the second one share the first entry, all behind it the second.
    EXPECT_EQ(startsOf("some bitmap=05ff"), " ab cdefghij        ");
    EXPECT_EQ(startsOf("some bitmap=").find_first_not_of(' '), std::string::npos);
    EXPECT_EQ(startsOf("some bitmap=00ff").find_first_not_of(' '), std::string::npos);
}

TEST(OatClasses, NamesOfMethods) {
    EXPECT_EQ(symbolsOf(withHead("22", "dex\nclass com.example.Foo$Bar\n  method direct <init>()V code=8\n")),
              "com.example.Foo$Bar.<init>[4112,4120)");
    // The length counts UTF-16 units and is taken for bytes.
    EXPECT_EQ(symbolsOf(withHead("22", "dex\nclass Caf\u00e9\n  method direct na\u00efve()V code=8\n")),
              "Caf\xC3\xA9.na\xC3\xAFv[4112,4120)");
    // Descriptors that are none of a class lose what they have of one.
    EXPECT_EQ(symbolsOf(withHead("22", "dex\nclass =L;\n  method direct f()V code=8\n")), ".f[4112,4120)");
}

TEST(OatClasses, AFailingMethodEndsItsClassOnly) {
    struct Case {
        char const* name;
        char const* options; ///< Of the first of two methods of the first class.
        status_t status;     ///< Where that class is the last one.
        char const* symbols;
    } const cases[] = {
        {"a name behind the table", "name=9999", status_BadFileFormat, ""},
        {"no name", "name=0xffffffff", status_Ok, "X.b"},
        {"a class behind the table", "class=9999", status_BadFileFormat, ""},
        {"a program behind the end", "debugoff=end-0", status_BadFileFormat, "X.a"},
        {"no program", "debugoff=0", status_Ok, "X.a X.b"},
        {"a code item too short for its head", "dexcode=end-19", status_Ok, "X.a X.b"},
        {"a code item too short for its code", "dexcode=end-20", status_Ok, "X.a X.b"},
        {"code below the code", "codeoff=100", status_Ok, "X.b"},
        {"a program that ends in an opcode that is none", "debugoff=end-8", status_Ok, "X.a X.b"},
    };
    auto const namesOf = [](std::string const& symbols) {
        std::string names;
        for (char const* const name : {"X.a", "X.b", "Y.c"}) {
            names += symbols.find(std::string(name) + '[') != std::string::npos
                         ? std::string(names.empty() ? "" : " ") + name
                         : "";
        }
        return names;
    };
    for (Case const& one : cases) {
        std::string const first = std::string("dex\nclass X\n  method direct a()V code=8 ") + one.options +
                                  "\n    insns 1\n    debug 1 : step 0 0; end\n  method direct b()V code=8\n";
        std::string const tail = "tail 0100090001000000\n"; // line 1, no names, an empty file, and a few bytes
        Reader alone(writeOat(withHead("22", first + tail)));
        EXPECT_EQ(alone.load(), one.status) << one.name;
        EXPECT_EQ(namesOf(alone.symbols()), one.symbols) << one.name;
        Reader both(writeOat(withHead("22", first + "class Y\n  method direct c()V code=8\n" + tail)));
        EXPECT_EQ(both.load(), status_Ok) << one.name;
        EXPECT_EQ(namesOf(both.symbols()), (*one.symbols != '\0' ? std::string(one.symbols) + ' ' : "") + "Y.c")
            << one.name;
    }
}

TEST(OatClasses, CodeBehindTheEndHasNoSize) {
    LogCapture const log(20000);
    Reader reader(writeOat(withHead("22", "dex\nclass X\n  method direct a()V codeoff=end-0\n")));
    EXPECT_EQ(reader.load(), status_Ok);
    EXPECT_EQ(log.count("Dex method: X.a offset: 0x"), 1U);
    auto const& messages = log.messages();
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(), [](std::string const& message) {
        return message.find(" size: 18446744073709551615") != std::string::npos;
    }));
}

TEST(OatClasses, MembersEndWithTheData) {
    OatFile const file = writeOat(withHead("22", k_smallOat));
    auto const withData = [&](std::uint32_t offset) {
        std::string data = file.data;
        put(data, file.places.at("dex0.class0.def") + 24, offset, 4);
        Reader reader(data, file.dataAddress, file.execAddress);
        return reader.load();
    };
    auto const dexSize = static_cast<std::uint32_t>(file.data.size() - file.places.at("dex0"));
    EXPECT_EQ(withData(0), status_Ok);
    EXPECT_EQ(withData(dexSize - 3), status_Ok);
    EXPECT_EQ(withData(dexSize), status_Ok);
    EXPECT_EQ(withData(dexSize + 1), status_BadFileFormat);
}

TEST(OatClasses, TheLastBytesCountAsFarAsTheyAreNeeded) {
    auto const methodAt = [](std::string const& options, std::string const& tail) {
        return writeOat(withHead("22", "dex\nclass X\n  method direct f()V code=16 " + options +
                                           "\n    debug 1 : step 0 0; end\ntail " + tail + "\n"));
    };
    auto const statusOf = [](OatFile const& file) { return Reader(file).load(); };
    auto const linesOf = [](OatFile const& file) {
        Reader reader(file);
        reader.load();
        return reader.lines();
    };
    // A code item of 20 bytes: room for one instruction, and its program lies nowhere.
    std::string const head = "0000000000000000ffffff7f";
    EXPECT_EQ(statusOf(methodAt("dexcode=end-20", head + "0100000000000000")), status_BadFileFormat);
    EXPECT_EQ(statusOf(methodAt("dexcode=end-20", head + "0200000000000000")), status_Ok);
    // The last byte is no opcode.
    EXPECT_EQ(linesOf(methodAt("debugoff=end-3", "0007000e")), "");
    EXPECT_NE(linesOf(methodAt("debugoff=end-4", "07000e00")), "");
    // An entry of method_ids wants 32 bytes.
    std::string const zeros(64, '0');
    OatFile file = methodAt("", zeros);
    std::uint64_t const dex = file.places.at("dex0");
    put(file.data, dex + 92, file.data.size() - 32 - dex, 4);
    EXPECT_EQ(statusOf(file), status_Ok);
    put(file.data, dex + 92, file.data.size() - 31 - dex, 4);
    LogCapture const log(40000);
    EXPECT_EQ(statusOf(file), status_InvalidPointer);
    EXPECT_EQ(log.count("ASSERTION FAILED: 'descr != NULL'"), 1U);
    // A DEX header has 112.
    file = methodAt("", std::string(240, '0'));
    put(file.data, file.places.at("dex0.dexFileOffset"), file.data.size() - 112, 4);
    EXPECT_EQ(statusOf(file), status_False); // no DEX file
    put(file.data, file.places.at("dex0.dexFileOffset"), file.data.size() - 111, 4);
    EXPECT_EQ(statusOf(file), status_BadFileFormat);
}

// --- Bad bytes

TEST(OatBytes, CutAtEveryByte) {
    OatFile const file = writeOat(withHead("22", k_smallOat));
    std::string const whole = [&] {
        Reader reader(file);
        reader.load();
        return reader.symbols();
    }();
    for (std::size_t size = 0; size < file.data.size(); ++size) {
        Reader reader(file.data.substr(0, size), file.dataAddress, file.execAddress);
        reader.load();
        // What there is was there before, but for the size of code that is cut off.
        std::string const symbols = reader.symbols();
        EXPECT_TRUE(symbols.empty() || whole.find(symbols.substr(0, symbols.find(','))) != std::string::npos)
            << size << ": " << symbols;
        reader.lines();
    }
}

TEST(OatBytes, NumbersAtTheirEnds) {
    for (char const* const version : {"7", "14", "28"}) {
        OatFile const file = writeOat(withHead(
            version, std::string(k_smallOat) + "class B some\n  method direct i()V code=8 "
                                               "thumb\n    map 0:0\n    debug 3 : step 0 0; file Z.java; end\n"));
        std::mt19937 random(7);
        for (unsigned int round = 0; round < 4000; ++round) {
            std::string data = file.data;
            std::uint64_t const values[] = {0,
                                            1,
                                            0x7F,
                                            0x80,
                                            0xFFFF,
                                            0x7FFFFFFF,
                                            0x80000000,
                                            0xFFFFFFFF,
                                            data.size(),
                                            data.size() - 1,
                                            0x8080808080808080,
                                            ~0ULL};
            for (unsigned int change = random() % 3 + 1; change != 0; --change) {
                unsigned int const width = 1U << random() % 4;
                put(data, random() % (data.size() - width), values[random() % std::size(values)], width);
            }
            Reader reader(data, file.dataAddress, file.execAddress);
            reader.load();
            reader.load();
            reader.symbols();
            reader.lines();
        }
    }
}
