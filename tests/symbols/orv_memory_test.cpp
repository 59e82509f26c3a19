// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Memory runs out at each point of a load in turn. What was asked for fails with a status, and what
/// is asked afterwards finds nothing broken: the sanitizers watch.

#include "orv/orv_frames.h"
#include "support/orv_debug_module.h"
#include "support/orv_elf_builder.h"
#include "support/orv_oat_random.h"
#include "support/orv_oat_writer.h"
#include "support/orv_qdc_file.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_symboltable.h"

#include <cstdlib>
#include <new>
#include <numeric>
#include <sstream>
#include <vector>

namespace {

/// Allocations to go until one fails; negative: none does.
thread_local long g_untilFailure = -1;

void* allocate(std::size_t size) noexcept {
    return g_untilFailure >= 0 && g_untilFailure-- == 0 ? nullptr : std::malloc(size != 0 ? size : 1);
}

void* allocateOrThrow(std::size_t size) {
    void* const memory = allocate(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

} // namespace

#define ORV_NOINLINE __attribute__((noinline)) // else the compiler pairs malloc with delete, and warns
ORV_NOINLINE void* operator new(std::size_t size) { return allocateOrThrow(size); }
ORV_NOINLINE void* operator new[](std::size_t size) { return allocateOrThrow(size); }
ORV_NOINLINE void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept { return allocate(size); }
ORV_NOINLINE void* operator new[](std::size_t size, std::nothrow_t const& /*tag*/) noexcept { return allocate(size); }
ORV_NOINLINE void* operator new[](std::size_t size, std::align_val_t align, std::nothrow_t const& /*tag*/) noexcept {
    return g_untilFailure >= 0 && g_untilFailure-- == 0 ? nullptr
                                                        : std::aligned_alloc(static_cast<std::size_t>(align), size);
}
ORV_NOINLINE void operator delete[](void* memory, std::align_val_t /*align*/) noexcept { std::free(memory); }
ORV_NOINLINE void operator delete(void* memory) noexcept { std::free(memory); }
ORV_NOINLINE void operator delete[](void* memory) noexcept { std::free(memory); }
ORV_NOINLINE void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
ORV_NOINLINE void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

using namespace orv_test;

namespace {

/// Runs work again and again, with a failure one allocation later each time, until there is none.
template <typename Work> int failInTurn(Work work) {
    for (int point = 0; point < 5000; ++point) {
        g_untilFailure = point;
        bool const isThrough = work();
        bool const wasReached = g_untilFailure < 0;
        g_untilFailure = -1;
        if (!wasReached) {
            EXPECT_TRUE(isThrough);
            return point;
        }
    }
    return -1;
}

std::string module() {
    ElfBuilder elf;
    elf.load(PF_R | PF_X, 0x1000, 0x2000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x1000, 'x'));
    std::uint32_t const plt =
        elf.section(".plt", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x2000, std::string(64, 'x'));
    unsigned int const import = elf.symbol("import", STB_GLOBAL, STT_FUNC, 0, 0, SHN_UNDEF);
    for (unsigned int i = 0; i < 100; ++i) {
        elf.symbol("f" + std::to_string(i), STB_GLOBAL, STT_FUNC, 0x1000 + i / 40 * 0x10, i % 20);
    }
    std::string const entry = elf.relocation(true, 0x3000, import, 7);
    elf.section(".rela.plt", SHT_RELA, 0, 0, entry, 0, elf.symbolSection() + 1, plt);
    return elf.bytes();
}

} // namespace

TEST(Memory, RunsOutDuringALoad) {
    TempDir const dir;
    std::string const path = dir.file("m", module());
    auto const manager = symbolManager();
    int const points = failInTurn([&] {
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        status_t const loaded =
            manager->loadSymbolsFromModuleEx(path.c_str(), nullptr, bank, arch_Unknown, load_flags_NewLoader, "");
        if (loaded != status_Ok) {
            EXPECT_EQ(loaded, status_OutOfMemory);
            return false;
        }
        RangeIterator it;
        status_t const asked = bank->originalSymbolRanges(it, k_allKinds, nullptr, nullptr);
        long const left = g_untilFailure;
        g_untilFailure = -1;
        // The bank stays usable, and gives all that it has.
        RangeIterator again;
        EXPECT_EQ(bank->originalSymbolRanges(again, k_allKinds, nullptr, nullptr), status_Ok);
        EXPECT_NE(allRanges(again).find("import["), std::string::npos);
        symbolAt(*bank, 0x1005);
        g_untilFailure = left;
        return asked == status_Ok;
    });
    EXPECT_GT(points, 20);
}

namespace {

/// All that a bank tells, by each kind of question.
std::string everything(IModuleSymbolBank& bank) {
    std::ostringstream text;
    RangeIterator all;
    text << bank.originalSymbolRanges(all, k_allKinds, nullptr, nullptr) << ' ' << allRanges(all) << '\n';
    SymMgrObjectPtr<IFrames> frames;
    std::vector<unsigned long long> addresses(48);
    std::iota(addresses.begin(), addresses.end(), 0x1000ULL);
    text << framesByAddresses(frames, bank, addresses.data(), addresses.size(), frames_Everything) << '\n';
    for (std::size_t i = 0; frames && i < frames->count(); ++i) {
        for (Frame const* frame = frames->at(i); frame != nullptr; frame = frame->caller) {
            text << (frame->function != nullptr ? frame->function : "?") << ' ' << frame->start << '-' << frame->end
                 << ' ' << (frame->file != nullptr ? frame->file : "?") << ':' << frame->line << ' ';
        }
    }
    for (char const* const name : {"/d0/a.c", "/d0/inc/b.h"}) {
        ICompUnitDetails* const unit = bank.compUnitDetailsById(0);
        ISourceFile* const file = unit != nullptr ? unit->sourceFileByName(name) : nullptr;
        LineIterator lines;
        text << '\n' << name << ':';
        if (file != nullptr && !file->sourceLines(lines, ~0ULL, nullptr, nullptr) && lines) {
            forEach(lines, [&](ISourceLine& line) { text << ' ' << line.location()->line() << '+' << line.size(); });
        }
    }
    return text.str();
}

} // namespace

/// A failed allocation loses nothing for good: the same question, asked again, has the answer.
TEST(Memory, RunsOutInDebugInformation) {
    Assembled const module(debugModule(2, 2, 0)); // two units at one place
    std::string const path = module.path();
    auto const manager = symbolManager();
    auto const load = [&](SymMgrObjectPtr<IModuleSymbolBank>& bank) {
        return manager->loadSymbolsFromModuleEx(path.c_str(), nullptr, bank, arch_Unknown, load_flags_NewLoader, "");
    };
    SymMgrObjectPtr<IModuleSymbolBank> whole;
    ASSERT_EQ(load(whole), status_Ok);
    std::string const answers = everything(*whole);
    for (char const* const part :
         {"_Z6inlinev[5104,5108)", "_Z6inlinev 4098-4108 /d0/a.c:1 _Z6inlinev 4097-4108 /d0/a.c:5",
          "_Z1f1v 4112-4136 /d0/a.c:3", "/d0/a.c: 1+16", "/d0/inc/b.h: 1+16"}) {
        EXPECT_NE(answers.find(part), std::string::npos) << part << " is not in\n" << answers;
    }
    auto const askInTurn = [&](char const* what, auto const& ask) {
        int const points = failInTurn([&] {
            SymMgrObjectPtr<IModuleSymbolBank> bank;
            if (load(bank) != status_Ok) {
                return false;
            }
            bool isThrough = false;
            try {
                isThrough = ask(*bank);
            } catch (std::bad_alloc const&) { // what has no status to give lets it through
            }
            long const left = g_untilFailure;
            g_untilFailure = -1;
            std::string const afterwards = everything(*bank);
            EXPECT_EQ(afterwards, answers) << what << ", and memory that ran out";
            g_untilFailure = left;
            return isThrough && !testing::Test::HasFailure();
        });
        EXPECT_GT(points, 50) << what;
    };
    askInTurn("symbols", [](IModuleSymbolBank& bank) {
        RangeIterator all;
        return bank.originalSymbolRanges(all, k_allKinds, nullptr, nullptr) == status_Ok;
    });
    askInTurn("a line", [](IModuleSymbolBank& bank) {
        SymMgrObjectPtr<IAddress> where;
        SymMgrObjectPtr<ISourceLocation> location;
        return bank.addressByValue(0x1005, where) == status_Ok &&
               bank.sourceLocationByAddress(where.get(), location, ~0ULL, nullptr) == status_Ok;
    });
    askInTurn("lines", [](IModuleSymbolBank& bank) {
        RangeIterator all;
        bank.originalSymbolRanges(all, k_allKinds, nullptr, nullptr);
        ICompUnitDetails* const unit = bank.compUnitDetailsById(0);
        ISourceFile* const file = unit != nullptr ? unit->mainSourceFile() : nullptr;
        LineIterator lines;
        return file != nullptr && !file->sourceLines(lines, ~0ULL, nullptr, nullptr);
    });
    askInTurn("chains", [](IModuleSymbolBank& bank) {
        SymMgrObjectPtr<IFrames> frames;
        unsigned long long const address = 0x1005;
        return framesByAddresses(frames, bank, &address, 1, frames_Everything) == status_Ok;
    });
}

namespace {

/// Loads a module and its functions, with a failure one allocation later each time. Afterwards the bank tells all.
template <typename AllOf> void failLoadsOf(std::string const& path, AllOf allOf, std::string const& answers) {
    int const points = failInTurn([&] {
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        status_t const loaded = loadBank(path, bank, load_flags_NewLoader);
        RangeIterator all;
        status_t const asked = loaded == status_Ok
                                   ? bank->originalSymbolRanges(all, symbol_kind_Function, nullptr, nullptr)
                                   : status_OutOfMemory;
        long const left = g_untilFailure;
        g_untilFailure = -1;
        EXPECT_TRUE(asked == status_Ok || asked == status_OutOfMemory);
        if (bank) {
            EXPECT_EQ(allOf(*bank), answers);
        }
        g_untilFailure = left;
        return asked == status_Ok && !testing::Test::HasFailure();
    });
    EXPECT_GT(points, 50);
}

} // namespace

TEST(Memory, RunsOutInAListOfAKernel) {
    TempDir const dir;
    std::ostringstream list;
    for (unsigned int i = 0; i < 1500; ++i) { // more names than one block of them holds
        list << std::hex << 0xFFFFFFFF81000000 + 16 * i << " T function_with_a_name_of_some_length_" << i << '\n';
    }
    dir.file("System.map", list.str());
    std::string const kernel = dir.file("vmlinuz", "no ELF file");
    auto const allOf = [](IModuleSymbolBank& bank) {
        RangeIterator all;
        bank.originalSymbolRanges(all, symbol_kind_Function, nullptr, nullptr);
        return allRanges(all);
    };
    SymMgrObjectPtr<IModuleSymbolBank> whole;
    ASSERT_EQ(loadBank(kernel, whole, load_flags_NewLoader), status_Ok);
    std::string const answers = allOf(*whole);
    EXPECT_NE(answers.find("_5db["), std::string::npos);
    failLoadsOf(kernel, allOf, answers);
}

TEST(Memory, RunsOutInAnOatFile) {
    TempDir const dir;
    std::string const path = dir.file("m.oat", writeOat(randomOatText(11, OatOddity::None)).elf);
    ::setenv("ORV_USE_LEGACY_OAT_READER", "1", 1);
    /// Methods, and the line of each byte; what fails gives nothing.
    auto const allOf = [](IModuleSymbolBank& bank) {
        std::ostringstream text;
        RangeIterator all;
        bank.originalSymbolRanges(all, symbol_kind_Function, nullptr, nullptr);
        forEach(all, [&](ISymbolRange& range) {
            text << rangeText(range);
            for (unsigned long long at = startOf(range); at < startOf(range) + range.size(); at += 5) {
                SymMgrObjectPtr<ISourceLocation> const place = placeIn(bank, at);
                text << ' ' << (place ? place->line() : 0);
            }
        });
        return text.str();
    };
    auto const manager = symbolManager(); // stays, so that loads alone fail
    std::string const answers = allOf(*bankOf(path, load_flags_NewLoader));
    EXPECT_GT(answers.size(), 500U);
    failLoadsOf(path, allOf, answers);
    ::unsetenv("ORV_USE_LEGACY_OAT_READER");
}

/// Lines are read while the bank is made, or there is no bank.
TEST(Memory, RunsOutInAProgramFile) {
    TempDir const dir;
    std::string const binary = dir.file("p.clbin", std::string(64, 'c'));
    auto const manager = symbolManager();
    for (auto const& [programFile, arch] :
         {std::pair{rlnFile("files unknown.cl\nkernels k\nrecord 0\n0 3 1 0\n32 9 2 0\n"), arch_VexRln1},
          std::pair{qdcFile({{"k", miraImage("files unknown.cl\n0 1 3 1\n5 1 9 2\nend 8\n"),
                              qdcBlob("kernel k\nmap 2,16 5,32\n").bytes()}}),
                    arch_VexQdc1}}) {
        dir.file("p.clpdb", programFile);
        int const points = failInTurn([&, family = arch] {
            SymMgrObjectPtr<IModuleSymbolBank> bank;
            status_t const loaded =
                manager->loadSymbolsFromModuleEx(binary.c_str(), nullptr, bank, family, load_flags_NewLoader, "k");
            RangeIterator all;
            status_t const asked =
                loaded == status_Ok ? bank->originalSymbolRanges(all, k_allKinds, nullptr, nullptr) : loaded;
            long const left = g_untilFailure;
            g_untilFailure = -1;
            EXPECT_TRUE(asked == status_Ok || asked == status_OutOfMemory) << asked;
            if (bank) {
                EXPECT_EQ(symbolsOf(*bank), ".dbginfo_vex[0,64) .code_vex[0,64)");
                EXPECT_EQ(placeIn(*bank, 31)->line(), 3U);
                EXPECT_EQ(placeIn(*bank, 32)->line(), 9U);
            }
            g_untilFailure = left;
            return asked == status_Ok && !testing::Test::HasFailure();
        });
        EXPECT_GT(points, 20);
    }
}

TEST(Memory, RunsOutInATable) {
    int const points = failInTurn([] {
        SymMgrObjectPtr<ISymbolTable> table;
        bool isThrough = false;
        try {
            table = ISymbolTable::create(nullptr);
            for (unsigned long long at = 0; at < 30; ++at) {
                SymMgrObjectPtr<SymbolScope> const scope(new SymbolScope(
                    nullptr, SymbolName::borrowed("s"), at, nullptr, symbol_visibility_Global, symbol_kind_Function));
                scope->addRange(at, at + 5);
                scope->addRange(at + 100, at + 105);
                scope->addThunk(new ImportThunk(nullptr, at + 200, 4));
                table->addScope(scope.get());
                table->addRange(at, at + 7, scope.get());
            }
            RawSymbolBatch batch(40);
            for (unsigned long long i = 0; i < 40; ++i) {
                batch.add({"raw", i / 20, i, symbol_visibility_Local, symbol_kind_Other});
            }
            static_cast<SymbolTable&>(*table).addRawSymbols(nullptr, std::move(batch));
            isThrough = true;
        } catch (std::bad_alloc const&) {
        }
        long const left = g_untilFailure;
        g_untilFailure = -1;
        if (table) {
            for (unsigned long long at = 0; at < 300; ++at) {
                SymMgrObjectPtr<ISymbolRange> range;
                table->symbolRangeByAddress(range, at, k_allKinds, nullptr);
            }
            RangeIterator it;
            table->symbolRanges(it, 0, 1000, k_allKinds);
            allRanges(it);
        }
        g_untilFailure = left;
        return isThrough;
    });
    EXPECT_GT(points, 100);
}

TEST(Memory, RunsOutWhenATableGoes) {
    SymMgrObjectPtr<ISymbol> held;
    {
        SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
        auto* const scope = new SymbolScope(nullptr, SymbolName::borrowed("f"), 1, nullptr, symbol_visibility_Global,
                                            symbol_kind_Function);
        scope->addRange(1, 5);
        table->addRange(1, 5, scope);
        held = scope->symbol();
        g_untilFailure = 0;
    }
    g_untilFailure = -1;
    EXPECT_STREQ(held->name(), ""); // it could not be copied
    RangeList list;
    list.add(10, 20);
    g_untilFailure = 1;
    EXPECT_THROW(list.add(30, 40), std::bad_alloc);
    g_untilFailure = -1;
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0].start, 10U);
}
