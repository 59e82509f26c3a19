// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Everything that a client is handed may be dropped in any order, by any thread, also after the bank, the loader and
/// the manager. AddressSanitizer and ThreadSanitizer are the judges.

#include "support/orv_elf_builder.h"
#include "support/orv_qdc_file.h"
#include "support/orv_test_support.h"

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <thread>

using namespace orv_test;

namespace {

constexpr char k_source[] = R"(
static inline int half(int x) { volatile int y = x; return y / 2; }
static inline int quarter(int x) { return half(half(x)) + 1; }
struct Pair { static int kept; int a; int b; };
int Pair::kept = 3;
__attribute__((noinline)) int twice(int x) { Pair p{x, 2}; return p.a + p.b + quarter(x) + Pair::kept; }
int main(int argc, char**) { return twice(argc) + quarter(argc); }
)";

/// Dropped by calling it.
using Drop = std::function<void()>;

class Handed {
public:
    template <typename T> SymMgrObjectPtr<T> keep(SymMgrObjectPtr<T> const& object) {
        if (object) {
            auto held = std::make_shared<SymMgrObjectPtr<T>>(object);
            m_drops.emplace_back([held] { held->reset(); });
        }
        return object;
    }
    template <typename T> void keepAll(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<T>>> const& iterator) {
        keep(iterator);
        unsigned int count = 0;
        for (auto item = iterator ? iterator->current() : SymMgrObjectPtr<T>(); item && count++ < 40;
             item = iterator->current()) {
            keepParts(*keep(item));
            iterator->next();
        }
    }

    /// From as many threads as there are shares, each of which is a random one.
    void dropAll(std::mt19937& random) {
        std::shuffle(m_drops.begin(), m_drops.end(), random);
        std::array<std::thread, 4> threads;
        for (std::size_t share = 0; share < threads.size(); ++share) {
            threads[share] = std::thread([this, share, &threads] {
                for (std::size_t i = share; i < m_drops.size(); i += threads.size()) {
                    m_drops[i]();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    std::size_t count() const { return m_drops.size(); }

private:
    void keepParts(ISymbolRange& range) {
        SymMgrObjectPtr<IAddress> address;
        range.startAddress(address);
        keep(address);
        keep(SymMgrObjectPtr<IThunk>(range.thunk()));
        keep(SymMgrObjectPtr<IInlineInstance>(range.inlineInstance()));
        SymMgrObjectPtr<ISymbolRange> other;
        range.outerRange(other);
        keep(other);
        RangeIterator inner;
        range.innerRanges(inner);
        keepAll(inner);
        SymMgrObjectPtr<ISymbol> const symbol = keep(SymMgrObjectPtr<ISymbol>(range.symbol()));
        LineIterator lines;
        symbol->sourceLines(lines);
        keepAll(lines);
        symbol->ranges(inner);
        keep(inner);
        symbol->thunks(inner);
        keep(inner);
        SymMgrObjectPtr<ISourceLine> line;
        symbol->sourceLine(line);
        keep(line);
        if (IInlineInstance* const instance = range.inlineInstance()) {
            SymMgrObjectPtr<ISourceLocation> call;
            instance->callSite(call);
            keep(call);
        }
    }
    void keepParts(ISourceLine& line) { keep(SymMgrObjectPtr<ISourceLocation>(line.location())); }
    void keepParts(ISection& section) {
        SymMgrObjectPtr<IBuffer> bytes;
        section.read(bytes);
        keep(bytes);
    }
    void keepParts(ISymbolFileToResolve& candidate) { candidate.validateSymbolFile("/nowhere"); }

    std::vector<Drop> m_drops;
};

class KeptChooser final : public ISymbolChooser, public ISourceLocationChooser {
public:
    explicit KeptChooser(Handed& handed) : m_handed(handed) {}
    SymMgrObjectPtr<ISymbol> choose(IIterator<SymMgrObjectPtr<ISymbol>>& candidates) override {
        m_handed.keep(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbol>>>(&candidates));
        return candidates.current();
    }
    status_t choose(SymMgrObjectPtr<ISourceLocation>& out,
                    IIterator<SymMgrObjectPtr<ISourceLocation>>& found) override {
        m_handed.keep(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLocation>>>(&found));
        out = m_handed.keep(found.current());
        return status_Ok;
    }

private:
    Handed& m_handed;
};

void askAll(std::string const& path, arch_t arch, Handed& handed) {
    auto const manager = handed.keep(symbolManager());
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    ASSERT_EQ(manager->loadSymbolsFromModuleEx(path.c_str(), nullptr, bank, arch, load_flags_NewLoader, "k"),
              status_Ok);
    handed.keep(bank);
    KeptChooser chooser(handed);
    RangeIterator ranges;
    bank->originalSymbolRanges(ranges, k_allKinds, nullptr, nullptr);
    handed.keepAll(ranges);
    bank->nonOverlappedSymbolRanges(ranges, k_allKinds, nullptr, nullptr, &chooser);
    handed.keepAll(ranges);
    for (int const round : {1, 2, 3}) {
        SymMgrObjectPtr<IAddress> address = handed.keep(bank->entryPoint());
        SymMgrObjectPtr<ISourceLocation> location;
        bank->sourceLocationByAddress(address.get(), location, ~0ULL, round == 1 ? &chooser : nullptr);
        handed.keep(location);
    }
    SymMgrObjectPtr<IIterator<ISegment*>> segments;
    bank->segments(segments);
    for (ISegment* segment = segments->current(); segment != nullptr; segment = segments->current()) {
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>> sections;
        segment->sections(sections, false);
        handed.keepAll(sections);
        segments->next();
    }
    handed.keep(segments);
    SymMgrObjectPtr<ISection> section;
    bank->sectionByName(".text", section);
    handed.keep(section);

    SymMgrObjectPtr<IFileFormatLoader> loader;
    IFileFormatLoader::create(loader, IModuleImage::create(path.c_str(), arch, false), "k");
    handed.keep(loader);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    loader->symbolFiles(candidates);
    handed.keepAll(candidates);
    SymMgrObjectPtr<IDebugInfoLoader> debugInfo;
    for (long long index = 0; index < 3; ++index) {
        loader->debugInfoLoader(debugInfo, index, 0);
        handed.keep(debugInfo);
    }
    if (debugInfo && debugInfo->srcLineResolver(nullptr, nullptr) != nullptr) {
        debugInfo->sectionByIndex(section, 1);
        handed.keep(section);
        debugInfo->loadSymbols(nullptr, nullptr, 0, nullptr);
        LineIterator lines;
        debugInfo->srcLineResolver(nullptr, nullptr)->sourceLines(lines, ~0ULL, 0xFFFFFFFF, 0, ~0ULL, nullptr);
        handed.keepAll(lines);
    }
}

/// A module with import stubs.
std::string withStubs() {
    ElfBuilder elf;
    elf.load(PF_R | PF_X, 0x400000, 0x1000);
    std::uint32_t const plt =
        elf.section(".plt", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x400500, std::string(0x60, '\xCC'));
    unsigned int const imported = elf.symbol("imported", STB_GLOBAL, STT_FUNC, 0, 0, SHN_UNDEF);
    std::string const entry = elf.relocation(true, 0x600000, imported, 7);
    elf.section(".rela.plt", SHT_RELA, 0, 0, entry, 0, elf.symbolSection() + 1, plt);
    return elf.bytes();
}

} // namespace

TEST(Lives, WhateverIsHandedOutMayGoInAnyOrder) {
    TempDir const dir;
    std::string const source = dir.file("m.cpp", k_source);
    std::string const program = dir.path() + "/program";
    ASSERT_EQ(std::system(("g++ -O2 -gdwarf-4 -no-pie -o " + program + " " + source).c_str()), 0);
    std::string const stubs = dir.file("stubs", withStubs());
    std::string const rln = dir.file("rln.clbin", std::string(64, 'c'));
    dir.file("rln.clpdb", rlnFile("files unknown.cl\nkernels k\nrecord 0\n0 3 1 0\n16 4 1 0\n"));
    std::string const qdc = dir.file("qdc.clbin", std::string(64, 'c'));
    dir.file("qdc.clpdb", qdcFile({{"k", miraImage("files unknown.cl\n0 1 3 1\n5 1 9 2\nend 8\n"),
                                    qdcBlob("kernel k\nmap 2,16 5,32\n").bytes()}}));
    std::mt19937 random(7);
    for (int round = 0; round < 12; ++round) {
        for (auto const& [path, arch] : {std::pair{program, arch_Unknown}, std::pair{stubs, arch_Unknown},
                                         std::pair{rln, arch_VexRln1}, std::pair{qdc, arch_VexQdc1}}) {
            Handed handed;
            askAll(path, arch, handed);
            EXPECT_GT(handed.count(), path == program ? 200U : 20U);
            handed.dropAll(random);
        }
    }
}

TEST(Lives, NamesOfSectionsStay) {
    SymMgrObjectPtr<ISection> section;
    bankOf("/bin/true", load_flags_NewLoader)->sectionByName(".text", section);
    EXPECT_STREQ(section->name(), ".text");
}
