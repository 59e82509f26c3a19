// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "manager/orv_range_cover.h"
#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"
#include "symbols/orv_scope.h"

using namespace orv_test;

namespace {

/// outer [1000,1100) with inner [1040,1050), data d [3000,3008), label l at 10F0; preferred base 1000.
class Bank : public testing::Test {
protected:
    Bank() {
        ElfBuilder elf;
        elf.entry = 0x1040;
        elf.load(PF_R | PF_X, 0x1000, 0x200, 0x100, 0x180);
        elf.load(PF_R | PF_W, 0x3000, 0x100, 0x300, 0x10);
        elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x180, 'x'));
        elf.section(".data", SHT_PROGBITS, SHF_ALLOC | SHF_WRITE, 0x3000, std::string(0x10, 'd'));
        elf.symbol("outer", STB_GLOBAL, STT_FUNC, 0x1000, 0x100);
        elf.symbol("inner", STB_GLOBAL, STT_FUNC, 0x1040, 0x10);
        elf.symbol("d", STB_GLOBAL, STT_OBJECT, 0x3000, 8, 2);
        elf.symbol("l", STB_LOCAL, STT_NOTYPE, 0x1110, 0);
        m_path = m_dir.file("m", elf.bytes());
        m_bank = bankOf(m_path);
    }

    SymMgrObjectPtr<IAddress> at(unsigned long long address) { return addressIn(*m_bank, address); }

    TempDir m_dir;
    std::string m_path;
    SymMgrObjectPtr<IModuleSymbolBank> m_bank;
};

using Stretches = std::vector<std::pair<unsigned long long, unsigned long long>>;

} // namespace

TEST_F(Bank, AddressesInAllForms) {
    EXPECT_EQ(m_bank->imageSize(), 0x200U);
    EXPECT_EQ(m_bank->entryPoint()->rva(), 0x40U);
    EXPECT_EQ(m_bank->memoryEstimate(), std::filesystem::file_size(m_path) * 8);
    SymMgrObjectPtr<IAddress> out;
    ASSERT_EQ(m_bank->addressByRVA(0x40, out), status_Ok);
    EXPECT_EQ(out->pseudoAddr(), 0x1040U);
    EXPECT_EQ(m_bank->addressByRVA(0x5000, out), status_Fail);
    EXPECT_EQ(out->pseudoAddr(), 0x1040U);
    ASSERT_EQ(m_bank->addressByFileOffset(0x140, out), status_Ok);
    EXPECT_EQ(out->pseudoAddr(), 0x1040U);
    // The base counts twice: 0x1000 + 0x1000 + 0x1040 is in data.
    ASSERT_EQ(m_bank->addressByOffset(out.get(), 0x1000, out), status_Ok);
    EXPECT_EQ(out->pseudoAddr(), 0x3040U);
    EXPECT_EQ(m_bank->addressByOffset(nullptr, 0, out), status_InvalidArg);
}

TEST_F(Bank, NullArgumentsAndWhatIsNotThere) {
    SymMgrObjectPtr<ISymbolRange> range;
    ASSERT_EQ(m_bank->symbolRangeByAddress(at(0x1040).get(), range, k_allKinds, nullptr), status_Ok);
    EXPECT_EQ(m_bank->symbolRangeByAddress(nullptr, range, k_allKinds, nullptr), status_InvalidArg);
    EXPECT_TRUE(range) << "out stays as it was";
    EXPECT_EQ(m_bank->symbolRangeByAddress(at(0x1108).get(), range, k_allKinds, nullptr), status_False);
    EXPECT_FALSE(range);

    SymMgrObjectPtr<ISourceLocation> location;
    EXPECT_EQ(m_bank->sourceLocationByAddress(nullptr, location, ~0ULL, nullptr), status_InvalidArg);
    EXPECT_EQ(m_bank->sourceLocationByAddress(at(0x1040).get(), location, ~0ULL, nullptr), status_False);
    ISourceFile* file = nullptr;
    EXPECT_EQ(m_bank->sourceFileByName("x", file), status_NotImplemented);
    EXPECT_EQ(m_bank->notImplementedQuery(), status_NotImplemented);
    EXPECT_EQ(m_bank->compUnitDetailsById(0), nullptr);

    SymMgrObjectPtr<ISection> section;
    EXPECT_EQ(m_bank->sectionByName(nullptr, section), status_InvalidArg);
    EXPECT_EQ(m_bank->sectionByName(".none", section), status_False);
    EXPECT_EQ(m_bank->sectionByName(".data", section), status_Ok);
    ISegment* segment = nullptr;
    EXPECT_EQ(m_bank->segmentByName(nullptr, segment), status_InvalidArg);
    EXPECT_EQ(m_bank->segmentByName(".data", segment), status_Ok);
    EXPECT_EQ(segment->rva(), 0x2000U);
    EXPECT_EQ(m_bank->segmentByName(".none", segment), status_Ok);
    EXPECT_EQ(segment, nullptr);

    SymMgrObjectPtr<IIterator<IOptReportEntry*>> reports;
    IOptReportEntry* entry = nullptr;
    EXPECT_EQ(m_bank->optReports(reports, {}, 0), status_False);
    EXPECT_EQ(m_bank->optReportByAddress({}, entry), status_False);
    SymMgrObjectPtr<IStackFrameContext> frame;
    SymMgrObjectPtr<ISymbol> variable;
    EXPECT_EQ(m_bank->findStackVariable(at(0x1040).get(), 1, frame, variable, nullptr), status_False);
}

TEST_F(Bank, RangesAsLoadedAndDisjoint) {
    RangeIterator it;
    EXPECT_EQ(m_bank->originalSymbolRanges(it, symbol_kind_t(0), nullptr, nullptr), status_False)
        << "mask 0 is what is loaded so far: nothing";
    EXPECT_EQ(symbolsOf(*m_bank, symbol_kind_Function), "outer[4096,4352) inner[4160,4176)");
    ASSERT_EQ(m_bank->originalSymbolRanges(it, k_allKinds, at(0x1100).get(), nullptr), status_Ok);
    EXPECT_EQ(allRanges(it), "l[4368,4368) d[12288,12296)");
    ASSERT_EQ(m_bank->nonOverlappedSymbolRanges(it, k_allKinds, nullptr, nullptr, nullptr), status_Ok);
    // The label reaches as far as the end of its section.
    EXPECT_EQ(allRanges(it), "outer[4096,4160) inner[4160,4176) outer[4176,4352) l[4368,4480) d[12288,12296)");
    EXPECT_EQ(m_bank->nonOverlappedSymbolRanges(it, symbol_kind_Data, nullptr, at(0x1100).get(), nullptr),
              status_False);
    EXPECT_FALSE(it);
}

TEST_F(Bank, RangesKnowTheirSurroundings) {
    for (auto const& [address, size] : {std::pair(0x1045ULL, 0xD0U),     // up to the label
                                        std::pair(0x1110ULL, 0x1EF0U),   // of a label, not to itself
                                        std::pair(0x3000ULL, 0x100U)}) { // the last one: to the end of its segment
        SymMgrObjectPtr<ISymbolRange> const range = rangeIn(*m_bank, address, k_allKinds);
        ASSERT_TRUE(range);
        EXPECT_EQ(range->sizeToNextRange(), size);
    }
    SymMgrObjectPtr<ISymbolRange> range = rangeIn(*m_bank, 0x1045, k_allKinds);
    EXPECT_TRUE(range->isEntryRange());
    EXPECT_EQ(range->thunk(), nullptr);
    EXPECT_EQ(range->inlineInstance(), nullptr);
    SymMgrObjectPtr<ISymbolRange> outer;
    range->outerRange(outer);
    ASSERT_TRUE(outer);
    EXPECT_EQ(outer->symbol(), nullptr) << "the module itself";
    RangeIterator inner;
    EXPECT_EQ(range->innerRanges(inner), status_False);
    range->innerRangeByAddress(outer, at(0x1045).get());
    EXPECT_FALSE(outer);
}

TEST_F(Bank, SymbolByRangesNeedsEverythingCovered) {
    struct {
        char const* name;
        Stretches ranges; ///< RVA, start and end.
        status_t status;
        char const* symbol;
    } const rows[] = {
        {"inside", {{0x10, 0x20}}, status_Ok, "outer"},
        {"two stretches", {{0x10, 0x20}, {0x80, 0x100}}, status_Ok, "outer"},
        {"beyond the end", {{0x80, 0x101}}, status_False, nullptr},
        {"one outside", {{0x10, 0x20}, {0x118, 0x120}}, status_False, nullptr},
        {"whole of inner", {{0x40, 0x50}}, status_Ok, "inner"},
        {"nowhere", {{0x9000, 0x9001}}, status_Fail, nullptr},
        {"in a gap", {{0x108, 0x109}}, status_False, nullptr},
    };
    for (auto const& row : rows) {
        RangesAdapter const ranges(&row.ranges);
        SymMgrObjectPtr<ISymbol> symbol;
        EXPECT_EQ(m_bank->symbolByRanges(const_cast<RangesAdapter*>(&ranges), symbol, true, true), row.status)
            << row.name;
        EXPECT_EQ(symbol ? symbol->name() : std::string("none"), row.symbol != nullptr ? row.symbol : "none")
            << row.name;
    }
    LogCapture log(40000);
    SymMgrObjectPtr<ISymbol> symbol;
    EXPECT_EQ(m_bank->symbolByRanges(nullptr, symbol, false, false), status_InvalidArg);
    EXPECT_EQ(log.count("ASSERTION FAILED: 'ranges != 0L && ranges->getCount() > 0'"), 1U);
}

/// The rule for pieces: what one range covers only in part does not count, whatever covers the rest.
TEST_F(Bank, CoverageByPieces) {
    struct {
        char const* name;
        Stretches covering; ///< Of the symbol, by the order of coming: one that comes in front takes nothing in. RVA.
        Stretches thunks;
        Stretches asked;
        bool isCovered;
    } const rows[] = {
        {"whole", {{0x10, 0x20}}, {}, {{0x10, 0x20}}, true},
        {"by two that touch", {{0x20, 0x30}, {0x10, 0x20}}, {}, {{0x18, 0x28}}, false},
        {"by two that overlap", {{0x20, 0x30}, {0x10, 0x28}}, {}, {{0x18, 0x2C}}, false},
        {"by two with a gap", {{0x10, 0x20}, {0x21, 0x40}}, {}, {{0x18, 0x30}}, false},
        {"two, whole, beside another",
         {{0x10, 0x18}, {0x20, 0x28}, {0x30, 0x40}},
         {},
         {{0x10, 0x18}, {0x30, 0x40}},
         true},
        {"split, the rest by another and a thunk", {{0x30, 0x60}, {0x20, 0x30}}, {{0x10, 0x20}}, {{0x18, 0x50}}, true},
        {"by a thunk", {{0x10, 0x20}}, {{0x50, 0x60}}, {{0x10, 0x20}, {0x50, 0x60}}, true},
    };
    for (auto const& row : rows) {
        SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf(m_path);
        SymMgrObjectPtr<SymbolScope> const scope(
            createSymbolScope(*loader, "s", 0x1010, nullptr, symbol_visibility_Global, symbol_kind_Function));
        for (auto const& [start, end] : row.covering) {
            scope->addRange(0x1000 + start, 0x1000 + end);
        }
        for (auto const& [start, end] : row.thunks) {
            scope->addThunk(new ImportThunk(nullptr, 0x1000 + start, end - start));
        }
        RangeIterator it;
        scope->symbol()->ranges(it);
        SymMgrObjectPtr<ISymbolRange> const range = it->current();
        EXPECT_EQ(coversRanges(*range, RangesAdapter(&row.asked), false, true), row.isCovered) << row.name;
        EXPECT_EQ(coversRanges(*range, RangesAdapter(&row.asked), false, false), row.isCovered && row.thunks.empty())
            << row.name;
    }
}

TEST_F(Bank, PrefetchingRestrictsAndTheNextQueryLoadsAgain) {
    EXPECT_EQ(m_bank->prefetcher()->putRVA(0x45), status_Ok);
    EXPECT_EQ(symbolsOf(*m_bank, symbol_kind_Function), "outer[4096,4352) inner[4160,4176)");
    EXPECT_EQ(symbolAt(*m_bank, 0x1045), "inner@1040+16");
    EXPECT_EQ(symbolAt(*m_bank, 0x3000, symbol_kind_Data), "none") << "not asked for";
    EXPECT_EQ(m_bank->prefetcher()->putPseudoAddress(0x3004), status_Ok);
    EXPECT_EQ(symbolAt(*m_bank, 0x3000, symbol_kind_Data), "d@3000+8");
}

TEST_F(Bank, QueriesAreTraced) {
    SymMgrObjectPtr<IAddress> const address = at(0x1045);
    SymMgrObjectPtr<ISymbolRange> range;
    m_bank->symbolRangeByAddress(address.get(), range, k_allKinds, nullptr);
    LogCapture log;
    m_bank->symbolRangeByAddress(address.get(), range, k_allKinds, nullptr);
    RangeIterator it;
    m_bank->originalSymbolRanges(it, k_allKinds, nullptr, nullptr);
    m_bank->prefetcher()->putRVA(1);
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{
                  "ENTER: symbolRangeByAddress", "symbolRangeByAddress: [IN] addr->pseudoAddr() = 4165",
                  "EXIT:  symbolRangeByAddress", "ENTER: originalSymbolRanges",
                  "originalSymbolRanges: [IN] beginPseudoAddr = 0",
                  "originalSymbolRanges: [IN] endPseudoAddr = 18446744073709551615", "EXIT:  originalSymbolRanges",
                  "ENTER: putRVA", "putRVA: [IN] rva = 1", "ENTER: putPseudoAddress",
                  "putPseudoAddress: [IN] pseudoAddr = 4097", "EXIT:  putPseudoAddress", "EXIT:  putRVA"}));
}
