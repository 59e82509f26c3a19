// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the library's own operations cost, on this program itself and on synthetic tables.

#include "orv/orv.h"
#include "symbols/orv_symboltable.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

using namespace ORV_3_30;

namespace {

constexpr auto k_allKinds = static_cast<symbol_kind_t>(31);
constexpr char k_self[] = "/proc/self/exe";

SymMgrObjectPtr<IModuleSymbolBank> loadSelf(unsigned int flags) {
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    manager->loadSymbolsFromModuleEx(k_self, nullptr, bank, arch_Unknown, flags, "");
    return bank;
}

void loadAndFirstQuery(benchmark::State& state) {
    for (auto _ : state) {
        SymMgrObjectPtr<IModuleSymbolBank> const bank = loadSelf(load_flags_NewLoader);
        SymMgrObjectPtr<ISymbolRange> range;
        bank->symbolRangeByAddress(bank->entryPoint().get(), range, k_allKinds, nullptr);
        benchmark::DoNotOptimize(range);
    }
}
BENCHMARK(loadAndFirstQuery);

void loadAgain(benchmark::State& state) {
    SymMgrObjectPtr<IModuleSymbolBank> const held = loadSelf(load_flags_None);
    for (auto _ : state) {
        benchmark::DoNotOptimize(loadSelf(load_flags_None));
    }
}
BENCHMARK(loadAgain);

/// Symbols one behind the other, or with one more over all of them.
void lookUp(benchmark::State& state) {
    auto const count = static_cast<unsigned long long>(state.range(0));
    RawSymbolBatch symbols(count + 1);
    for (unsigned long long i = 0; i < count; ++i) {
        symbols.add({"s", i * 64, 60, symbol_visibility_Global, symbol_kind_Function});
    }
    if (state.range(1) != 0) {
        symbols.add({"all", 0, count * 64, symbol_visibility_Local, symbol_kind_Other});
    }
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    static_cast<SymbolTable&>(*table).addRawSymbols(nullptr, std::move(symbols));
    std::mt19937_64 random(1);
    for (auto _ : state) {
        SymMgrObjectPtr<ISymbolRange> range;
        table->symbolRangeByAddress(range, random() % (count * 64), k_allKinds, nullptr);
        benchmark::DoNotOptimize(range);
    }
}
BENCHMARK(lookUp)->ArgNames({"symbols", "nested"})->ArgsProduct({{1000, 30000, 400000}, {0, 1}});

void addRandomRanges(benchmark::State& state) {
    std::mt19937_64 random(1);
    std::vector<unsigned long long> starts(static_cast<std::size_t>(state.range(0)));
    for (unsigned long long& start : starts) {
        start = random() % (starts.size() * 100);
    }
    for (auto _ : state) {
        SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
        for (unsigned long long const start : starts) {
            table->addRange(start, start + 80,
                            new SymbolScope(nullptr, SymbolName::borrowed("s"), start, nullptr,
                                            symbol_visibility_Global, symbol_kind_Function));
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(addRandomRanges)->Arg(30000)->Unit(benchmark::kMillisecond);

/// A hot frame: the same variable asked for again and again.
void stackVariable(benchmark::State& state) {
    char folder[] = "/tmp/orv-bench-XXXXXX";
    std::string const program = ::mkdtemp(folder) + std::string("/p");
    std::string const build =
        "printf 'int f(int x) { int v = x; int* volatile p = &v; return *p; }\\nint main(void) { return "
        "f(0); }\\n' | gcc -xc -gdwarf-3 -gstrict-dwarf -O0 -no-pie -o " +
        program + " -";
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> functions;
    SymMgrObjectPtr<IAddress> pc;
    if (std::system(build.c_str()) != 0 ||
        manager->loadSymbolsFromModuleEx(program.c_str(), nullptr, bank, arch_Unknown, load_flags_None, "") !=
            status_Ok ||
        bank->originalSymbolRanges(functions, symbol_kind_Function, nullptr, nullptr) != status_Ok) {
        state.SkipWithError("no program to ask about");
        return;
    }
    for (auto range = functions->current(); range; range = functions->current()) {
        if (std::string(range->symbol()->name()) == "f") {
            range->startAddress(pc);
        }
        functions->next();
    }
    SymMgrObjectPtr<IStackFrameContext> context = IStackFrameContext::create();
    context->setRegister(1, 0x7000);
    unsigned long long address = 0x7000;
    SymMgrObjectPtr<ISymbol> variable;
    while (address > 0x6F00 && bank->findStackVariable(pc.get(), address, context, variable, nullptr) != status_Ok) {
        --address;
    }
    for (auto _ : state) {
        bank->findStackVariable(pc.get(), address, context, variable, nullptr);
        benchmark::DoNotOptimize(variable);
    }
    std::filesystem::remove_all(folder);
}
BENCHMARK(stackVariable)->Iterations(1000000);

} // namespace

BENCHMARK_MAIN();
