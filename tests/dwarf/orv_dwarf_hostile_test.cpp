// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Real debug information with bytes cut off and flipped: whatever comes of it, every question has an answer
/// and the module stays usable. The sanitizers are the judges.

#include "fuzz/orv_fuzz_input.h"
#include "support/orv_assembler.h"

#include <cstring>
#include <elf.h>
#include <fstream>
#include <iterator>
#include <random>

using namespace orv_test;

namespace {

constexpr char const* k_program = R"(
namespace ns { struct A { A(int); int f(int) const; int v; static int s; }; }
ns::A::A(int x) : v(x) {}
int ns::A::s = 3;
template <typename T> T twice(T x) { return x + x; }
int ns::A::f(int y) const { if (y > 3) return v * y; for (int i = 0; i < twice(v); ++i) y += i; return y; }
static int table[7];
extern "C" int _start(int x) { ns::A a(x); table[1] += a.f(2); return table[1] + ns::A::s; }
)";

struct Section {
    std::string name;
    std::size_t headerAt;
    std::size_t offset;
    std::size_t size;
};

std::vector<Section> debugSectionsOf(std::string const& file) {
    Elf64_Ehdr header;
    std::memcpy(&header, file.data(), sizeof(header));
    auto const sectionAt = [&](std::size_t index) {
        Elf64_Shdr section;
        std::memcpy(&section, file.data() + header.e_shoff + index * sizeof(section), sizeof(section));
        return section;
    };
    std::size_t const names = sectionAt(header.e_shstrndx).sh_offset;
    std::vector<Section> found;
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
        Elf64_Shdr const section = sectionAt(i);
        std::string const name = file.data() + names + section.sh_name;
        if (name.compare(0, 7, ".debug_") == 0) {
            found.push_back({name, header.e_shoff + i * sizeof(section), section.sh_offset, section.sh_size});
        }
    }
    return found;
}

void askEverything(std::string const& path) {
    auto const bank = bankOf(path, load_flags_NewLoader);
    RangeIterator ranges;
    bank->originalSymbolRanges(ranges, k_allKinds, nullptr, nullptr);
    orv_fuzz::walk(ranges);
    for (unsigned long long address = 0x1000; address < 0x1100; address += 3) {
        orv_fuzz::askAt(*bank, address);
    }
    EXPECT_NE(symbolAt(*bank, 0x1000), "none"); // the raw symbols answer, whatever the rest is
}

class Hostile : public testing::TestWithParam<char const*> {};

} // namespace

TEST_P(Hostile, CutAndFlippedSections) {
    TempDir const dir;
    dir.file("p.cpp", k_program);
    std::string const program = dir.path() + "/p";
    std::string const build = "g++ -fno-exceptions -nostdlib -static -Wl,-Ttext=0x1000 " + std::string(GetParam()) +
                              " -o " + program + " " + dir.path() + "/p.cpp";
    ASSERT_EQ(std::system(build.c_str()), 0);
    std::ifstream in(program, std::ios::binary);
    std::string const good{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::vector<Section> const sections = debugSectionsOf(good);
    ASSERT_GE(sections.size(), 4U);
    std::mt19937 random(5);
    for (Section const& section : sections) {
        for (int i = 0; i < 120; ++i) {
            std::string bad = good;
            if (i % 3 == 0) {
                std::uint64_t const size = random() % section.size;
                std::memcpy(bad.data() + section.headerAt + offsetof(Elf64_Shdr, sh_size), &size, sizeof(size));
            }
            for (int flips = i % 3 == 0 ? 0 : 1 + i % 5; flips > 0; --flips) {
                bad[section.offset + random() % section.size] = static_cast<char>(i % 2 == 0 ? random() : 0xFF);
            }
            SCOPED_TRACE(section.name + ", case " + std::to_string(i));
            askEverything(dir.file("bad", bad));
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Flags, Hostile, testing::Values("-O0 -gdwarf-2", "-O2 -gdwarf-3", "-O2 -gdwarf-4"));
