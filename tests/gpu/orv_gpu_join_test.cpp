// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The join of a QDC kernel's two lists.

#include "gpu/orv_gpu_join.h"
#include "support/orv_program_file.h"

#include <random>

using namespace orv_test;

namespace {

using Lines = std::vector<VexLineEntry>;

struct Joined {
    status_t status;
    std::string lines;
    std::vector<std::string> said;
    int level = log4cplus::NOT_SET_LOG_LEVEL; ///< Of the last that is said.
};
Joined joinOf(Lines const& lines, InstructionMap const& map) {
    LogCapture const log(log4cplus::WARN_LOG_LEVEL);
    Lines out;
    status_t const status = joinLines(lines, map, out);
    return {status, textOf(out), saidIn(log), log.level()};
}

/// Step by step, each pair against all lines.
Joined bruteForce(Lines const& lines, InstructionMap const& map) {
    Joined joined{status_Fail, "", {}};
    Lines unique{lines.front()};
    for (std::size_t i = 1; i < lines.size(); ++i) {
        if (lines[i].address < unique.back().address) {
            return joined;
        }
        if (lines[i].address > unique.back().address) {
            unique.push_back(lines[i]);
        } else if (lines[i].line != unique.back().line) {
            joined.said.push_back("QDC DBG Line Info: MIRA instruction " + std::to_string(lines[i].address) +
                                  " pointed to different source lines: " + std::to_string(unique.back().line) + ", " +
                                  std::to_string(lines[i].line));
        }
    }
    for (std::size_t i = 1; i < map.size(); ++i) {
        if (map[i].second <= map[i - 1].second) {
            return joined;
        }
    }
    Lines out;
    long long previous = -1;
    for (auto const& pair : map) {
        long long chosen = -1;
        for (std::size_t i = 1; i < unique.size() && chosen < 0; ++i) {
            chosen = unique[i].address > pair.first ? static_cast<long long>(i) - 1 : -1;
        }
        if (chosen < 0 && unique.back().address <= pair.first) {
            chosen = static_cast<long long>(unique.size()) - 1;
        }
        if (chosen >= 0 && chosen != previous) {
            VexLineEntry const& line = unique[static_cast<std::size_t>(chosen)];
            out.push_back({pair.second, line.line, line.column, line.fileId});
        }
        previous = chosen;
    }
    joined.status = status_Ok;
    joined.lines = textOf(out);
    return joined;
}

} // namespace

TEST(GpuJoin, TakesTheLineThatEachInstructionBelongsTo) {
    struct {
        char const* name;
        Lines lines;
        InstructionMap map;
        Joined expected;
    } const cases[] = {
        {"a run of one line is one item",
         {{0, 3, 1, 0}, {5, 9, 2, 1}},
         {{0, 0}, {2, 16}, {5, 32}, {7, 48}},
         {status_Ok, "0:3:1:0 32:9:2:1", {}}},
        {"a line comes back",
         {{0, 3, 0, 0}, {5, 9, 0, 0}},
         {{0, 0}, {6, 16}, {1, 32}},
         {status_Ok, "0:3:0:0 16:9:0:0 32:3:0:0", {}}},
        {"the first of two lines of an instruction",
         {{0, 3, 0, 0}, {0, 4, 0, 0}, {5, 9, 0, 0}},
         {{0, 0}, {5, 8}},
         {status_Ok,
          "0:3:0:0 8:9:0:0",
          {"QDC DBG Line Info: MIRA instruction 0 pointed to different source lines: 3, 4"}}},
        {"one line twice, which is nothing to tell",
         {{0, 3, 1, 0}, {0, 3, 2, 0}},
         {{0, 0}},
         {status_Ok, "0:3:1:0", {}}},
        {"ahead of the first of several lines",
         {{4, 3, 0, 0}, {5, 9, 0, 0}},
         {{0, 0}, {5, 8}},
         {status_Ok, "0:3:0:0 8:9:0:0", {}}},
        {"ahead of the only line", {{4, 3, 0, 0}}, {{0, 0}, {4, 8}, {5, 12}}, {status_Ok, "8:3:0:0", {}}},
        {"ahead of it once more", {{4, 3, 0, 0}}, {{4, 0}, {0, 8}, {4, 12}}, {status_Ok, "0:3:0:0 12:3:0:0", {}}},
        {"lines that go down", {{5, 3, 0, 0}, {4, 9, 0, 0}}, {{0, 0}}, {status_Fail, "", {}}},
        {"offsets that stay", {{0, 3, 0, 0}}, {{0, 0}, {1, 0}}, {status_Fail, "", {}}},
        {"offsets that go down", {{0, 3, 0, 0}}, {{0, 0}, {1, 8}, {2, 7}}, {status_Fail, "", {}}},
        {"no pairs", {{0, 3, 0, 0}}, {}, {status_Fail, "", {"isaLineInfoSize > 0"}}},
        {"no lines", {}, {{0, 0}}, {status_Fail, "", {"miraLineInfoSize > 0"}}},
        {"nothing", {}, {}, {status_Fail, "", {"isaLineInfoSize > 0"}}},
    };
    for (auto const& c : cases) {
        Joined const joined = joinOf(c.lines, c.map);
        EXPECT_EQ(joined.status, c.expected.status) << c.name;
        EXPECT_EQ(joined.lines, c.expected.lines) << c.name;
        EXPECT_EQ(joined.said, c.expected.said) << c.name;
        if (joined.status == status_Ok && !joined.said.empty()) {
            EXPECT_EQ(joined.level, log4cplus::WARN_LOG_LEVEL) << c.name;
        }
    }
}

TEST(GpuJoin, GivesWhatASearchThroughEverythingGives) {
    std::mt19937 random(15);
    auto const below = [&](unsigned int limit) { return static_cast<std::uint32_t>(random() % limit); };
    int joinedLists = 0;
    for (int round = 0; round < 4000; ++round) {
        unsigned int const steps = 1 + below(4);
        Lines lines;
        std::uint32_t address = below(3);
        for (std::uint32_t i = 1 + below(12); i != 0; --i) {
            lines.push_back({address, below(4), below(4), below(2)});
            address += below(steps);
            address -= below(40) == 0 ? 1 : 0; // once in a while unsorted, or near the end of 32 bits
        }
        InstructionMap map;
        std::uint32_t offset = 0;
        for (std::uint32_t i = 1 + below(16); i != 0; --i) {
            map.emplace_back(below(24), offset);
            offset += below(200) == 0 ? 0 : 1 + below(8);
        }
        Joined const expected = bruteForce(lines, map);
        Joined const joined = joinOf(lines, map);
        ASSERT_EQ(joined.status, expected.status) << "round " << round;
        ASSERT_EQ(joined.lines, expected.lines) << "round " << round;
        ASSERT_EQ(joined.said, expected.said) << "round " << round;
        joinedLists += joined.status == status_Ok ? 1 : 0;
    }
    EXPECT_GT(joinedLists, 2000);
    EXPECT_LT(joinedLists, 4000);
}
