/// Eight threads at once, on the same modules and on different ones. ThreadSanitizer is the judge.

#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"

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

void query(IModuleSymbolBank& bank, std::mt19937& random) {
    auto const mask = static_cast<symbol_kind_t>(1 + random() % 31);
    switch (random() % 5) {
    case 0: symbolAt(bank, 0x1000 + random() % 0x5000, mask); break;
    case 1: symbolAt(bank, 0x20000 + random() % 0x1000, mask); break;
    case 2: {
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
        bank.originalSymbolRanges(it, mask, nullptr, nullptr);
        allRanges(it);
        break;
    }
    case 3: {
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
        bank.nonOverlappedSymbolRanges(it, mask, nullptr, nullptr, nullptr);
        for (auto range = it ? it->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = it->current()) {
            SymMgrObjectPtr<ISymbol> const symbol(range->symbol());
            symbol->demangledName(0);
            range->sizeToNextRange();
            SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> inner;
            range->innerRanges(inner);
            it->next();
        }
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
    std::string const path = dir.file("m", module(7));
    for (int round = 0; round < 20; ++round) {
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        ASSERT_EQ(loadBank(path, bank, load_flags_NewLoader), status_Ok);
        together(std::chrono::milliseconds(30), [&](std::mt19937& random) { query(*bank, random); });
    }
}

TEST(Threads, TheManagerComesAndGoes) {
    together(std::chrono::milliseconds(500), [](std::mt19937& random) {
        SymMgrObjectPtr<ISymbolManager> manager;
        EXPECT_EQ(ISymbolManager::create(manager), status_Ok);
        SymMgrObjectPtr<IFileFormatLoader> loader;
        IFileFormatLoader::create(loader, IModuleImage::create("/bin/true", arch_Unknown, false), "");
        if (random() % 2 == 0) {
            manager.reset();
        }
    });
}
