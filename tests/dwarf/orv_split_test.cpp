// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Files of split units that are missing, of another build, damaged, or not worth opening: lines and raw symbols answer
/// all the same.

#include "fuzz/orv_fuzz_input.h"
#include "support/orv_split_program.h"

#include <random>

using namespace orv_test;

namespace {

constexpr char k_notFound[] = "Split debug information not found: ";
constexpr char k_other[] = "Split debug information of another build: ";
constexpr char k_badIndex[] = "The index of a package is missing or incorrect: ";
constexpr char k_badRow[] = "No unit where the index of a package has it: ";

std::string word(std::uint64_t value, unsigned int size = 4) { return {reinterpret_cast<char const*>(&value), size}; }

/// A package's index with one row, as its fields are.
struct Index {
    struct Column {
        std::uint32_t id;
        std::uint32_t offset;
        std::uint32_t size;
    };
    std::uint32_t version = 5;
    std::uint32_t units = 1;
    std::uint32_t slots = 2;
    std::uint32_t row = 1;
    std::uint32_t columnCount = 0; ///< 0: as many as there are.
    std::uint64_t id = 0;
    std::vector<Column> columns{};
    std::size_t cut = 0;

    std::string bytes() const {
        std::size_t const count = columnCount != 0 ? columnCount : columns.size();
        std::string text =
            word(version) + word(count) + word(units) + word(slots) + word(0, 8) + word(id, 8) + word(0) + word(row);
        for (auto const field : {&Column::id, &Column::offset, &Column::size}) {
            for (Column const& column : columns) {
                text += word(column.*field);
            }
        }
        return text.substr(0, text.size() - cut);
    }
};

/// A .dwo of version 5 as a package, behind some bytes of padding in each section.
class PackageOf {
public:
    static constexpr std::uint32_t k_padding = 64;

    explicit PackageOf(std::string const& splitFile) : m_sections(sectionsOf(contentOf(splitFile))) {
        std::memcpy(&index.id, m_sections.at(".debug_info.dwo").data() + 12, 8); // version 5, 7.5.1.2
        std::pair<char const*, std::uint32_t> const columns[] = {{".debug_info.dwo", 1},
                                                                 {".debug_abbrev.dwo", 3},
                                                                 {".debug_str_offsets.dwo", 6},
                                                                 {".debug_rnglists.dwo", 8}};
        for (auto const& [name, id] : columns) {
            if (m_sections.count(name) != 0) {
                std::string& bytes = m_sections[name];
                index.columns.push_back({id, k_padding, static_cast<std::uint32_t>(bytes.size())});
                bytes = std::string(k_padding, '\x7F') + bytes + std::string(k_padding, '\x7F');
            }
        }
    }
    std::string bytes() const {
        auto sections = m_sections;
        sections[".debug_cu_index"] = index.bytes();
        return fileOf(sections);
    }

    Index index;

private:
    std::map<std::string, std::string> m_sections;
};

class SplitUnits : public testing::TestWithParam<char const*> {};

void askEverything(std::string const& path) {
    auto const bank = bankOf(path, load_flags_NewLoader);
    RangeIterator ranges;
    bank->originalSymbolRanges(ranges, k_allKinds, nullptr, nullptr);
    orv_fuzz::walk(ranges);
    for (unsigned long long address = 0x1000; address < 0x1080; address += 3) {
        orv_fuzz::askAt(*bank, address);
    }
    EXPECT_NE(symbolAt(*bank, 0x1000), "none"); // the raw symbols answer, whatever the rest is
}

} // namespace

TEST_P(SplitUnits, OneFileAtATime) {
    Reading const modern(reading_Modern);
    SplitProgram const program(GetParam());
    unsigned int line = 0;
    {
        LogCapture const log(30000);
        auto const bank = bankOf(program.path(), load_flags_NewLoader);
        EXPECT_GE(longestChainOf(*bank, "_Z2u0i"), 2U);
        EXPECT_GE(longestChainOf(*bank, "_Z2u1i"), 2U);
        EXPECT_EQ(log.count("Split"), 0U);
        ICompUnitDetails* unit = nullptr;
        ASSERT_EQ(rangeIn(*bank, 0x1000, symbol_kind_Function)->symbol()->compUnitDetails(unit), status_Ok);
        EXPECT_NE(std::string(unit->compilerName()), ""); // which the split unit tells
        EXPECT_EQ(std::filesystem::path(unit->mainSourceFile()->path()).filename(), "u0.cpp");
        line = placeIn(*bank, 0x1000)->line();
        EXPECT_GE(line, 3U);
    }
    std::filesystem::remove(program.splitFile(0));
    for (bool const isOther : {false, true}) {
        if (isOther) { // the id is the same in no other program
            program.dir().file("u0.dwo", contentOf(program.splitFile(1)));
        }
        LogCapture const log(30000);
        auto const bank = bankOf(program.path(), load_flags_NewLoader);
        EXPECT_EQ(longestChainOf(*bank, "_Z2u0i"), 0U) << isOther;
        EXPECT_GE(longestChainOf(*bank, "_Z2u1i"), 2U) << isOther;
        EXPECT_EQ(log.count(k_notFound), 1U);
        EXPECT_EQ(log.count(k_other), isOther ? 1U : 0U);
        EXPECT_EQ(placeIn(*bank, 0x1000)->line(), line);
    }
}

TEST_P(SplitUnits, AnnouncedAddressesOpenWhatTheyNeed) {
    Reading const modern(reading_Modern);
    SplitProgram const program(GetParam(), 5);
    for (unsigned int i = 0; i < 5; ++i) {
        std::filesystem::remove(program.splitFile(i));
    }
    auto const bank = bankOf(program.path(), load_flags_NewLoader);
    LogCapture const log(30000);
    bank->prefetcher()->putRVA(addressIn(*bank, 0x1000)->rva());
    EXPECT_NE(rangeIn(*bank, 0x1000, symbol_kind_Function), nullptr);
    EXPECT_EQ(log.count(k_notFound), 1U);
    EXPECT_NE(rangeIn(*bank, 0x1000, k_allKinds), nullptr); // data may stand in any unit
    EXPECT_EQ(log.count(k_notFound), 5U);
}

/// The same files whole, and with bytes cut off and flipped, in the split units and in the skeletons.
TEST_P(SplitUnits, CutAndFlippedSections) {
    Reading const modern(reading_Modern);
    SplitProgram const program(GetParam(), 1);
    std::string const good = contentOf(program.splitFile(0));
    std::mt19937 random(7);
    for (auto const& [name, bytes] : sectionsOf(good)) {
        for (int i = 0; i < 100 && name.compare(0, 6, ".debug") == 0; ++i) {
            auto sections = sectionsOf(good);
            std::string& bad = sections[name];
            bad.resize(i % 3 == 0 ? random() % bad.size() : bad.size());
            for (int flips = i % 3 == 0 ? 0 : 1 + i % 5; flips > 0; --flips) {
                bad[random() % bad.size()] = static_cast<char>(i % 2 == 0 ? random() : 0xFF);
            }
            SCOPED_TRACE(name + ", case " + std::to_string(i));
            program.dir().file("u0.dwo", fileOf(sections));
            askEverything(program.path());
        }
    }
    program.dir().file("u0.dwo", good);
    std::string const whole = contentOf(program.path());
    std::size_t const addresses = whole.find(sectionsOf(whole).at(".debug_addr"));
    std::size_t const entries = whole.find(sectionsOf(whole).at(".debug_info"));
    for (int i = 0; i < 200; ++i) {
        std::string bad = whole;
        bad[(i % 2 == 0 ? addresses : entries) + random() % 0x28] = static_cast<char>(random());
        SCOPED_TRACE("skeleton, case " + std::to_string(i));
        askEverything(program.dir().file("bad", bad));
    }
}

INSTANTIATE_TEST_SUITE_P(Compilers, SplitUnits, testing::Values("g++ -gdwarf-4", "g++ -gdwarf-5", "clang++ -gdwarf-5"));

TEST(SplitPackage, RowsThatDoNotHoldTheUnit) {
    Reading const modern(reading_Modern);
    SplitProgram const program("g++ -gdwarf-5", 1);
    PackageOf const good(program.splitFile(0));
    std::filesystem::remove(program.splitFile(0));
    struct Row {
        char const* name;
        void (*edit)(Index&);
        char const* log; ///< Null: the unit is found.
    };
    Row const rows[] = {
        {"as it is", [](Index&) {}, nullptr},
        {"another unit's id", [](Index& i) { i.id ^= 1; }, ""},
        {"no version", [](Index& i) { i.version = 3; }, k_badIndex},
        {"cut", [](Index& i) { i.cut = 1; }, k_badIndex},
        {"more slots than there are", [](Index& i) { i.slots = ~0U; }, k_badIndex},
        {"more rows than there are", [](Index& i) { i.units = ~0U; }, k_badIndex},
        {"more columns than there are", [](Index& i) { i.columnCount = ~0U; }, k_badIndex},
        {"a few more columns", [](Index& i) { i.columnCount = 9; }, k_badIndex},
        {"no row", [](Index& i) { i.row = 0; }, ""},
        {"a row behind the last", [](Index& i) { i.row = 2; }, ""},
        {"no rows", [](Index& i) { i.units = 0; }, ""},
        {"entries behind the section", [](Index& i) { i.columns[0].offset = ~0U; }, k_badRow},
        {"more entries than there are", [](Index& i) { i.columns[0].size = ~0U; }, k_badRow},
        {"entries of something else", [](Index& i) { i.columns[0].offset = 0; }, k_badRow},
        {"no entries", [](Index& i) { i.columns[0].size = 0; }, k_badRow},
        {"no column of entries", [](Index& i) { i.columns[0].id = 2; }, k_badRow},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        PackageOf package = good;
        row.edit(package.index);
        program.dir().file("program.dwp", package.bytes());
        LogCapture const log(30000);
        auto const bank = bankOf(program.path(), load_flags_NewLoader);
        bool const isFound = longestChainOf(*bank, "_Z2u0i") >= 2;
        EXPECT_EQ(isFound, row.log == nullptr);
        EXPECT_EQ(log.count(k_notFound), isFound ? 0U : 1U);
        EXPECT_TRUE(isFound || *row.log == '\0' || log.count(row.log) == 1);
        EXPECT_GE(placeIn(*bank, 0x1000)->line(), 3U);
    }
}

TEST(SplitPackage, RandomIndices) {
    Reading const modern(reading_Modern);
    SplitProgram const program("g++ -gdwarf-5", 1);
    PackageOf package(program.splitFile(0));
    std::filesystem::remove(program.splitFile(0));
    std::mt19937 random(3);
    for (int i = 0; i < 150; ++i) {
        PackageOf bad = package;
        for (Index::Column& column : bad.index.columns) {
            std::uint32_t* const fields[] = {&column.id, &column.offset, &column.size};
            *fields[random() % 3] = random() % 2 == 0 ? random() % 9 : column.size + random() % 128 - 64;
        }
        SCOPED_TRACE("case " + std::to_string(i));
        program.dir().file("program.dwp", bad.bytes());
        askEverything(program.path());
    }
}
