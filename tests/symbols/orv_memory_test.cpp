// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Memory runs out at each point of a load in turn. What was asked for fails with a status, and what
/// is asked afterwards finds nothing broken: the sanitizers watch.

#include "orv/orv_frames.h"
#include "support/orv_assembler.h"
#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"
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
    SymMgrObjectPtr<ISymbolManager> manager;
    ASSERT_EQ(ISymbolManager::create(manager), status_Ok);
    int const points = failInTurn([&] {
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        status_t const loaded =
            manager->loadSymbolsFromModuleEx(path.c_str(), nullptr, bank, arch_Unknown, load_flags_NewLoader, "");
        if (loaded != status_Ok) {
            EXPECT_EQ(loaded, status_OutOfMemory);
            return false;
        }
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
        status_t const asked = bank->originalSymbolRanges(it, k_allKinds, nullptr, nullptr);
        long const left = g_untilFailure;
        g_untilFailure = -1;
        // The bank stays usable, and gives all that it has.
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> again;
        EXPECT_EQ(bank->originalSymbolRanges(again, k_allKinds, nullptr, nullptr), status_Ok);
        EXPECT_NE(allRanges(again).find("import["), std::string::npos);
        symbolAt(*bank, 0x1005);
        g_untilFailure = left;
        return asked == status_Ok;
    });
    EXPECT_GT(points, 20);
}

namespace {

/// Two units with functions, a label, a list of ranges, inlined bodies and lines of two files.
std::string debugModule() {
    DwarfText text;
    text.abbrev(1, 0x11, true, {{0x03, 0x08}, {0x1B, 0x08}, {0x10, 0x17}, {0x25, 0x08}})
        .abbrev(2, 0x2E, true, {{0x03, 0x08}, {0x11, 0x01}, {0x12, 0x06}, {0x3A, 0x0B}, {0x3B, 0x0B}})
        .abbrev(3, 0x0A, false, {{0x03, 0x08}, {0x11, 0x01}})
        .abbrev(4, 0x2E, false, {{0x03, 0x08}, {0x55, 0x17}})
        .abbrev(5, 0x1D, false, {{0x31, 0x13}, {0x11, 0x01}, {0x12, 0x06}, {0x58, 0x0B}, {0x59, 0x0B}});
    std::string const function =
        "\"\n.8byte code\n.4byte 16\n.byte 1, 1\n.uleb128 3\n.asciz \"l\"\n.8byte code + 4\n"
        ".uleb128 5\n.4byte inlined%U - .Lunit%U\n.8byte code + 4\n.4byte 6\n.byte 2, 7\n.byte 0\n";
    for (int unit = 0; unit < 2; ++unit) {
        std::string body = ".uleb128 1\n.asciz \"u.c\"\n.asciz \"/d\"\n.4byte 0\n"
                           ".asciz \"GNU Fortran 4\"\n.uleb128 2\n.asciz \"f" +
                           function + ".uleb128 2\n.asciz \"_Z1gv" + function +
                           "inlined%U: .uleb128 4\n.asciz \"h\"\n.4byte 0\n.byte 0\n";
        for (std::size_t at = body.find("%U"); at != std::string::npos; at = body.find("%U")) {
            body.replace(at, 2, std::to_string(unit));
        }
        text.unit({}, body);
    }
    text.section(".debug_ranges", ".8byte code, code + 4, code + 32, code + 40, 0, 0\n")
        .section(".debug_line",
                 ".4byte 2f - 1f\n1: .2byte 2\n.4byte 4f - 3f\n3: .byte 1, 1, -5, 14, 13\n.fill 12, 1, 1\n"
                 ".asciz \"inc\"\n.byte 0\n.asciz \"u.c\"\n.byte 0, 0, 0\n.asciz \"u.h\"\n.byte 1, 0, 0, 0\n"
                 "4: .byte 0, 9, 2\n.8byte code\n.byte 1, 2, 4, 5\n.uleb128 70000\n.byte 4, 2, 1, 2, 8, 0, 1, 1\n2:\n");
    return text.source();
}

/// All that a bank tells, by each kind of question.
std::string everything(IModuleSymbolBank& bank) {
    std::ostringstream text;
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> all;
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
    for (char const* const name : {"/d/u.c", "/d/inc/u.h"}) {
        ICompUnitDetails* const unit = bank.compUnitDetailsById(0);
        ISourceFile* const file = unit != nullptr ? unit->sourceFileByName(name) : nullptr;
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>> lines;
        text << '\n' << name << ':';
        if (file != nullptr && !file->sourceLines(lines, ~0ULL, nullptr, nullptr) && lines) {
            for (auto line = lines->current(); line; line = lines->current()) {
                text << ' ' << line->location()->line() << '+' << line->size();
                lines->next();
            }
        }
    }
    return text.str();
}

} // namespace

/// A failed allocation loses nothing for good: the same question, asked again, has the answer.
TEST(Memory, RunsOutInDebugInformation) {
    Assembled const module(debugModule());
    std::string const path = module.path();
    SymMgrObjectPtr<ISymbolManager> manager;
    ASSERT_EQ(ISymbolManager::create(manager), status_Ok);
    auto const load = [&](SymMgrObjectPtr<IModuleSymbolBank>& bank) {
        return manager->loadSymbolsFromModuleEx(path.c_str(), nullptr, bank, arch_Unknown, load_flags_NewLoader, "");
    };
    SymMgrObjectPtr<IModuleSymbolBank> whole;
    ASSERT_EQ(load(whole), status_Ok);
    std::string const answers = everything(*whole);
    for (char const* const part :
         {"h[4128,4136)", "f 4096-4112 /d/inc/u.h:7", "h 4100-4106 /d/inc/u.h:1", "/d/u.c: 1+4", "/d/inc/u.h: "}) {
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
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> all;
        return bank.originalSymbolRanges(all, k_allKinds, nullptr, nullptr) == status_Ok;
    });
    askInTurn("a line", [](IModuleSymbolBank& bank) {
        SymMgrObjectPtr<IAddress> where;
        SymMgrObjectPtr<ISourceLocation> location;
        return bank.addressByValue(0x1005, where) == status_Ok &&
               bank.sourceLocationByAddress(where.get(), location, ~0ULL, nullptr) == status_Ok;
    });
    askInTurn("lines", [](IModuleSymbolBank& bank) {
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> all;
        bank.originalSymbolRanges(all, k_allKinds, nullptr, nullptr);
        ICompUnitDetails* const unit = bank.compUnitDetailsById(0);
        ISourceFile* const file = unit != nullptr ? unit->mainSourceFile() : nullptr;
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>> lines;
        return file != nullptr && !file->sourceLines(lines, ~0ULL, nullptr, nullptr);
    });
    askInTurn("chains", [](IModuleSymbolBank& bank) {
        SymMgrObjectPtr<IFrames> frames;
        unsigned long long const address = 0x1005;
        return framesByAddresses(frames, bank, &address, 1, frames_Everything) == status_Ok;
    });
}

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
    int const points = failInTurn([&] {
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        status_t const loaded = loadBank(kernel, bank, load_flags_NewLoader);
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
        return asked == status_Ok;
    });
    EXPECT_GT(points, 50);
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
            SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
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
