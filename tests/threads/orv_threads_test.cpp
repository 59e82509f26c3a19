// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Eight threads at once, on the same modules and on different ones. ThreadSanitizer is the judge.

#include "support/orv_debug_module.h"
#include "support/orv_elf_builder.h"
#include "support/orv_oat_random.h"
#include "support/orv_oat_writer.h"
#include "support/orv_pack.h"
#include "support/orv_qdc_file.h"
#include "support/orv_split_program.h"
#include "support/orv_test_support.h"

#include <array>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

using namespace orv_test;

namespace {

constexpr unsigned int k_threads = 8;

std::string module(unsigned int seed) {
    ElfBuilder elf;
    elf.load(PF_R | PF_X, 0x1000, 0x10000);
    elf.load(PF_R | PF_W, 0x20000, 0x1000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x8000, 'x'));
    elf.section(".data", SHT_PROGBITS, SHF_ALLOC | SHF_WRITE, 0x20000, std::string(0x1000, 'd'));
    for (unsigned int i = 0; i < 300; ++i) {
        elf.symbol("_Z9function" + std::to_string((i + seed) % 10) + "i", STB_GLOBAL,
                   i % 7 == 0 ? STT_NOTYPE : STT_FUNC, 0x1000 + i * 0x40, i % 5 * 0x20);
        elf.symbol("data" + std::to_string(i), STB_LOCAL, STT_OBJECT, 0x20000 + i * 8, 8, 2);
    }
    return elf.bytes();
}

/// Runs the same work in all threads for a while.
template <typename Work> void together(std::chrono::milliseconds time, Work work) {
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < k_threads; ++i) {
        threads.emplace_back([&, i] {
            std::mt19937 random(i);
            do {
                work(random);
            } while (!isOver);
        });
    }
    std::this_thread::sleep_for(time);
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Loads anew, and asks from all threads at once, several times. work(bank, random): false for a wrong answer.
template <typename Work>
void fromTheFirstQueryOn(std::string const& path, int rounds, std::chrono::milliseconds time, Work work) {
    for (int round = 0; round < rounds; ++round) {
        auto const bank = bankOf(path, load_flags_NewLoader);
        std::atomic<unsigned int> wrong{0};
        together(time, [&](std::mt19937& random) { wrong += work(*bank, random) ? 0 : 1; });
        EXPECT_EQ(wrong, 0U);
    }
}

void query(IModuleSymbolBank& bank, std::mt19937& random) {
    auto const mask = static_cast<symbol_kind_t>(1 + random() % 31);
    switch (random() % 5) {
    case 0: symbolAt(bank, 0x1000 + random() % 0x5000, mask); break;
    case 1: symbolAt(bank, 0x20000 + random() % 0x1000, mask); break;
    case 2: symbolsOf(bank, mask); break;
    case 3: {
        RangeIterator it;
        bank.nonOverlappedSymbolRanges(it, mask, nullptr, nullptr, nullptr);
        forEach(it, [](ISymbolRange& range) {
            SymMgrObjectPtr<ISymbol> const symbol(range.symbol());
            symbol->demangledName(0);
            range.sizeToNextRange();
            RangeIterator inner;
            range.innerRanges(inner);
        });
        break;
    }
    default:
        if (random() % 50 == 0) {
            bank.prefetcher()->putRVA(random() % 0x5000);
        }
        bank.entryPoint();
    }
}

} // namespace

TEST(Threads, LoadQueryAndDrop) {
    TempDir const dir;
    std::vector<std::string> paths;
    for (unsigned int i = 0; i < 3; ++i) {
        paths.push_back(dir.file("m" + std::to_string(i), module(i)));
    }
    paths.push_back(dir.file("broken", module(1).substr(0, 5000)));
    std::atomic<int> loads{0};
    together(std::chrono::milliseconds(2500), [&](std::mt19937& random) {
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        unsigned int const flags = random() % 4 == 0   ? load_flags_NewLoader
                                   : random() % 4 == 0 ? load_flags_NoDebugInfo
                                                       : load_flags_None;
        std::string const& path = paths[random() % paths.size()];
        if (loadBank(path, bank, flags) != status_Ok) {
            EXPECT_EQ(path, paths.back());
            return;
        }
        ++loads;
        SymMgrObjectPtr<IModuleSymbolBank> again;
        EXPECT_EQ(loadBank(path, again), status_Ok);
        for (unsigned int i = random() % 20; i > 0; --i) {
            query(random() % 2 == 0 ? *bank : *again, random);
        }
    });
    EXPECT_GT(loads, 0);
}

TEST(Threads, OneBankFromTheFirstQueryOn) {
    TempDir const dir;
    fromTheFirstQueryOn(dir.file("m", module(7)), 20, std::chrono::milliseconds(30),
                        [](IModuleSymbolBank& bank, std::mt19937& random) {
                            query(bank, random);
                            return true;
                        });
}

TEST(Threads, OneUnpacksAndAllHaveThePackedSymbols) {
#ifndef ORV_HAS_LZMA
    GTEST_SKIP() << "xz: not built in";
#else
    ElfBuilder stripped;
    stripped.load(PF_R | PF_X, 0x1000, 0x10000);
    stripped.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x8000, 'x'));
    stripped.section(".gnu_debugdata", SHT_PROGBITS, 0, 0, xzOf(module(3)));
    TempDir const dir;
    std::string const path = dir.file("m", stripped.bytes());
    Reading const modern(reading_Modern);
    for (int round = 0; round < 10; ++round) {
        SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf(path);
        together(std::chrono::milliseconds(20), [&](std::mt19937&) {
            SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
            EXPECT_EQ(loader->loadSymbols(table.get(), nullptr, symbol_kind_Function), status_Ok);
            RangeIterator it;
            table->symbolRanges(it, 0, ~0ULL, k_allKinds);
            EXPECT_NE(allRanges(it), "");
        });
    }
#endif
}

namespace {

/// Units that fill the whole of the program.
std::string debugText() { return debugModule(4, 60, 0x400); }

void queryLines(IModuleSymbolBank& bank, std::mt19937& random) {
    SymMgrObjectPtr<IAddress> const where = addressIn(bank, 0x1000 + random() % 0x1000);
    SymMgrObjectPtr<ISymbolRange> range;
    SymMgrObjectPtr<ISourceLocation> location;
    if (random() % 2 == 0 && bank.sourceLocationByAddress(where.get(), location, ~0ULL, nullptr) == status_Ok) {
        EXPECT_NE(location->sourceFile(), nullptr);
        LineIterator lines;
        location->sourceFile()->sourceLines(lines, ~0ULL, where.get(), nullptr);
    }
    if (ICompUnitDetails* const unit = bank.compUnitDetailsById(0)) {
        unit->mainSourceFile();
        unit->compilerName();
    }
    if (bank.symbolRangeByAddress(where.get(), range, symbol_kind_Function, nullptr) != status_Ok) {
        return;
    }
    ISymbol& symbol = *range->symbol();
    SymMgrObjectPtr<ISourceLine> line;
    LineIterator lines;
    switch (random() % 4) {
    case 0: symbol.sourceLine(line); break;
    case 1: symbol.sourceLines(lines); break;
    case 2: symbol.sourceLineByAddress(line, where.get()); break;
    default: symbolsIn(*range);
    }
    query(bank, random);
}

/// A chain of inlined calls from the outside in, with the places of the calls. False if it is not the three bodies that
/// every function has at its start.
bool followsChain(IModuleSymbolBank& bank, unsigned long long address) {
    SymMgrObjectPtr<IAddress> const where = addressIn(bank, address);
    SymMgrObjectPtr<ISymbolRange> range = rangeIn(bank, address, symbol_kind_Function);
    unsigned int depth = 0;
    for (auto inner = range; inner; range = inner) {
        inner = nullptr;
        range->innerRangeByAddress(inner, where.get());
        SymMgrObjectPtr<ISourceLocation> call;
        if (inner && inner->inlineInstance() != nullptr) {
            inner->inlineInstance()->callSite(call);
            depth += call && call->sourceFile() != nullptr && call->line() == depth + 3 ? 1 : 100;
        }
    }
    return depth == 3;
}

bool findsVariable(IModuleSymbolBank& bank, std::mt19937& random) {
    SymMgrObjectPtr<ISymbol> variable;
    SymMgrObjectPtr<IStackFrameContext> context = IStackFrameContext::create();
    unsigned int const frame = 0x7000 + random() % 8 * 0x100;
    unsigned int const index = random() % 16;
    context->setRegister(1, frame);
    SymMgrObjectPtr<IAddress> const where = addressIn(bank, 0x1000 + random() % 4 * 0x400 + 0x3D0 + random() % 0x20);
    return bank.findStackVariable(where.get(), frame + index, context, variable, nullptr) == status_Ok &&
           variable->name() == "local" + std::to_string(index) && variable->shortName() != nullptr;
}

} // namespace

TEST(Threads, ChainsAndStackVariablesFromTheFirstQueryOn) {
    Assembled const module(debugText());
    fromTheFirstQueryOn(
        module.path(), 12, std::chrono::milliseconds(60), [](IModuleSymbolBank& bank, std::mt19937& random) {
            unsigned int const unit = random() % 4;
            unsigned int const function = random() % 60;
            bool const isRight = random() % 3 == 0 ? findsVariable(bank, random)
                                                   : followsChain(bank, 0x1003 + unit * 0x400 + function * 16);
            queryLines(bank, random);
            return isRight;
        });
}

TEST(Threads, LinesAndSymbolsFromTheFirstQueryOn) {
    Assembled const module(debugText());
    fromTheFirstQueryOn(module.path(), 20, std::chrono::milliseconds(40),
                        [](IModuleSymbolBank& bank, std::mt19937& random) {
                            // No thread may see a half-read state: every address of the program has a line.
                            SymMgrObjectPtr<ISourceLocation> location;
                            SymMgrObjectPtr<IAddress> const where = addressIn(bank, 0x1000 + random() % 0x70);
                            status_t const status = bank.sourceLocationByAddress(where.get(), location, ~0ULL, nullptr);
                            queryLines(bank, random);
                            return status == status_Ok;
                        });
}

TEST(Threads, OneImageForAll) {
    TempDir const dir;
    std::string bytes;
    for (unsigned int i = 0; i < 4096; ++i) {
        bytes += std::to_string(1000 + i);
    }
    auto const image = IModuleImage::create(dir.file("m", bytes).c_str(), arch_Unknown, false);
    std::atomic<unsigned int> wrong{0};
    together(std::chrono::milliseconds(100), [&](std::mt19937& random) {
        unsigned int const i = random() % 4096;
        char word[5] = {};
        wrong += image->read(i * 4, 4, word) == 4 && word == std::to_string(1000 + i) ? 0 : 1;
    });
    EXPECT_EQ(wrong, 0U);
}

TEST(Threads, TwoBanksOfOneModule) {
    // Both read what is held of the module, each under a lock of its own.
    std::string const stubs = "\n.section .plt,\"ax\",@progbits\n.fill 16, 1, 0x90\n.rept 200\ncall foo\n.endr\n";
    for (Assembled::Kind const kind : {Assembled::Kind::Program, Assembled::Kind::Object}) {
        Assembled const module(debugText() + (kind == Assembled::Kind::Object ? stubs : ""), kind);
        std::array<std::string, 2> expected;
        for (int round = 0; round < 30; ++round) {
            std::array const banks{bankOf(module.path()), bankOf(module.path(), load_flags_NoDebugInfo)};
            std::array<std::string, 2> found;
            std::atomic<int> waiting{round == 0 ? 0 : 2};
            auto const ask = [&](std::size_t i) {
                for (--waiting; waiting > 0;) {
                }
                found[i] = symbolsOf(*banks[i]);
            };
            if (round == 0) {
                ask(0);
                ask(1);
                expected = found;
                ASSERT_NE(expected[0], expected[1]);
                continue;
            }
            std::thread other(ask, 1);
            ask(0);
            other.join();
            EXPECT_EQ(found, expected);
        }
    }
}

TEST(Threads, CandidatesOfOneModule) {
    // A module and its companion under a root, loaded again and again.
    Assembled const module(debugText() +
                           ".section .id,\"a\",@progbits\n.4byte 4, 4, 3\n.asciz \"GNU\"\n.byte 1, 2, 3, 4\n");
    module.edit("objcopy --rename-section .id=.note.gnu.build-id"); // the linker drops one that has its name
    TempDir const root;
    std::string const folder = root.path() + "/.build-id/01";
    std::filesystem::create_directories(folder);
    std::filesystem::copy(module.path(), folder + "/020304.debug");
    DebugRootsResolver roots({root.path()});
    std::atomic<unsigned int> wrong{0};
    together(std::chrono::milliseconds(400), [&](std::mt19937& random) {
        auto const bank = bankOf(module.path(), load_flags_None, &roots);
        wrong += bank->symFileName() == folder + "/020304.debug" ? 0 : 1;
        query(*bank, random);
    });
    EXPECT_EQ(wrong, 0U);
}

TEST(Threads, TheManagerComesAndGoes) {
    together(std::chrono::milliseconds(500), [](std::mt19937& random) {
        auto manager = symbolManager();
        auto const loader = loaderOf("/bin/true");
        if (random() % 2 == 0) {
            manager.reset();
        }
    });
}

TEST(Threads, AKernelListMovesTheModuleWhileOthersAsk) {
    TempDir const dir;
    std::string text = "ffffffff80000000 D d\n";
    for (int i = 0; i < 3000; ++i) {
        text += "0000000000001000 A absolute\n";
    }
    std::string const list = dir.file("list", text + "ffffffff81000010 T _text\n");
    for (int round = 0; round < 20; ++round) {
        SymMgrObjectPtr<IFileFormatLoader> loader;
        ASSERT_EQ(IFileFormatLoader::create(loader, IModuleImage::create("vmlinux", arch_Unknown, false), ""),
                  status_Ok);
        ISegment* const guess = loader->segmentByAddress(0x80000000);
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
        loader->symbolFiles(candidates);
        ASSERT_EQ(candidates->current()->validateSymbolFile(list.c_str()), 0);
        std::thread asking([&] {
            for (bool isWide = false; !isWide; isWide = loader->segmentByAddress(0xFFFFFFFF81000000) != nullptr) {
                EXPECT_EQ(loader->segmentByAddress(0x80000001), guess);
                unsigned long long const base = loader->preferredLoadAddress();
                EXPECT_TRUE(base == 0x80000000 || base == 0xFFFFFFFF81000010) << "never in between: " << base;
                loader->sectionByAddress(0x80000000);
            }
        });
        SymMgrObjectPtr<IDebugInfoLoader> lists;
        EXPECT_EQ(loader->debugInfoLoader(lists, 0, 0), status_Ok);
        asking.join();
        ISegment* const wide = loader->segmentByIndex(1);
        ASSERT_NE(wide, nullptr);
        EXPECT_EQ(wide->type(), 1U);
        EXPECT_EQ(wide->memorySize(), 0x7FFFFFFFU);
        EXPECT_EQ(wide->rva() + wide->fileOffset() + wide->fileSize(), 0U);
        EXPECT_STREQ(wide->name(), ".text_");
        EXPECT_EQ(loader->sectionByAddress(0xFFFFFFFFFFFFFFFF)->address(), 0xFFFFFFFF80000000);
        EXPECT_EQ(loader->segmentByName(".text"), guess);
    }
}

/// Loads for single addresses add lines to a table that others read.
TEST(Threads, AnOatFileFromTheFirstQueryOn) {
    OatFile const oat = writeOat(randomOatText(11, OatOddity::None));
    TempDir const dir;
    std::string const path = dir.file("m.oat", oat.elf);
    ::setenv("ORV_USE_LEGACY_OAT_READER", "1", 1);
    std::map<unsigned long long, unsigned int> wanted; // lines of the bytes that have one
    {
        auto const whole = bankOf(path, load_flags_NewLoader);
        symbolsOf(*whole);
        for (std::uint64_t at = oat.execAddress; at < oat.dataAddress + oat.data.size(); ++at) {
            if (SymMgrObjectPtr<ISourceLocation> const place = placeIn(*whole, at)) {
                wanted[at] = place->line();
            }
        }
    }
    ASSERT_GT(wanted.size(), 100U);
    fromTheFirstQueryOn(path, 20, std::chrono::milliseconds(30), [&](IModuleSymbolBank& bank, std::mt19937& random) {
        auto const any = wanted.lower_bound(oat.execAddress + random() % (wanted.rbegin()->first - oat.execAddress));
        switch (random() % 5) {
        case 0: bank.prefetcher()->putPseudoAddress(any->first); break;
        case 1: symbolsOf(bank, static_cast<symbol_kind_t>(1 + random() % 31)); break;
        case 2: rangeIn(bank, any->first, symbol_kind_Function); break;
        default:
            if (SymMgrObjectPtr<ISourceLocation> const place = placeIn(bank, any->first)) {
                LineIterator lines;
                place->sourceFile()->sourceLines(lines, ~0ULL, nullptr, nullptr);
                forEach(lines, [](ISourceLine& line) { line.location()->sourceFile()->path(); });
                return place->line() == any->second;
            }
        }
        return true;
    });
    ::unsetenv("ORV_USE_LEGACY_OAT_READER");
}

/// One binary is loaded as this kernel and that: each bank has its own kernel's lines, and its program file tells all.
TEST(Threads, OneBinaryAsSeveralKernels) {
    TempDir const dir;
    std::string const blob = qdcBlob("kernel k3\nmap 5,32\nkernel k5\nmap 5,32\n").bytes();
    std::string const binary = dir.file("k.clbin", std::string(64, 'c'));
    std::string const beside =
        dir.file("k.clpdb", qdcFile({{"k3", miraImage("files unknown.cl\n0 1 3 1\nend 8\n"), blob},
                                     {"k5", miraImage("files unknown.cl\n0 1 5 1\nend 8\n"), blob}}));
    auto const manager = symbolManager();
    SymMgrObjectPtr<IProgramFile> file;
    ASSERT_EQ(IProgramFile::create(file, beside.c_str(), arch_VexQdc1), status_Ok);
    SymMgrObjectPtr<IModuleSymbolBank> shared;
    ASSERT_EQ(manager->loadSymbolsFromModuleEx(binary.c_str(), nullptr, shared, arch_VexQdc1, load_flags_None, "k3"),
              status_Ok);
    std::atomic<unsigned int> wrong{0};
    together(std::chrono::milliseconds(300), [&](std::mt19937& random) {
        unsigned int const line = random() % 2 == 0 ? 3 : 5;
        std::string const kernel = "k" + std::to_string(line);
        SymMgrObjectPtr<IModuleSymbolBank> own;
        manager->loadSymbolsFromModuleEx(binary.c_str(), nullptr, own, arch_VexQdc2, load_flags_NewLoader,
                                         kernel.c_str());
        wrong += own && placeIn(*own, random() % 64)->line() == line ? 0 : 1;
        wrong += placeIn(*shared, random() % 64)->line() == 3 ? 0 : 1;
        SymMgrObjectPtr<ISourceLine> declared;
        rangeIn(*shared, 0, k_allKinds)->symbol()->sourceLine(declared);
        wrong += declared && declared->location()->line() == 3 ? 0 : 1;
        kernel_lines_t lines = kernel_lines_Damaged;
        file->kernelLines(kernel.c_str(), lines);
        wrong += lines == kernel_lines_Read ? 0 : 1;
    });
    EXPECT_EQ(wrong, 0U);
}

/// Files of split units are opened in the first load, whoever asks first, and their sections when they are needed.
TEST(Threads, SplitFilesFromTheFirstQueryOn) {
    Reading const modern(reading_Modern);
    for (char const* const compiler : {"g++ -gdwarf-4", "g++ -gdwarf-5"}) {
        SplitProgram const program(compiler, 12);
        std::filesystem::remove(program.splitFile(11));
        fromTheFirstQueryOn(
            program.path(), 4, std::chrono::milliseconds(150), [](IModuleSymbolBank& bank, auto& random) {
                unsigned long long const address = 0x1000 + random() % 0x100;
                if (random() % 8 == 0) {
                    bank.prefetcher()->putRVA(addressIn(bank, address)->rva());
                }
                auto const range = rangeIn(bank, address, random() % 2 == 0 ? symbol_kind_Function : k_allKinds);
                chainAt(bank, address);
                placeIn(bank, address);
                ICompUnitDetails* unit = nullptr;
                bool const hasUnit = range && range->symbol()->compUnitDetails(unit) == status_Ok;
                return !hasUnit || (*unit->compilerName() != '\0' && *unit->compilationDirectory() != '\0');
            });
    }
}
