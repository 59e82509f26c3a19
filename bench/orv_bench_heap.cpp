/// Prints the heap that a module's bank takes once its symbols are loaded: orv_bench_heap MODULE

#include "orv/orv.h"

#include <cstdio>
#include <malloc.h>

using namespace ORV_3_30;

namespace {

std::size_t heapInUse() {
    struct mallinfo2 const info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: orv_bench_heap MODULE\n");
        return 2;
    }
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    std::size_t const before = heapInUse();
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    if (manager->loadSymbolsFromModule(argv[1], nullptr, bank, arch_Unknown, false, "") != status_Ok) {
        return 1;
    }
    SymMgrObjectPtr<ISymbolRange> range;
    bank->symbolRangeByAddress(bank->entryPoint().get(), range, static_cast<symbol_kind_t>(31), nullptr);
    std::size_t const loaded = heapInUse() - before;

    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> all;
    bank->originalSymbolRanges(all, static_cast<symbol_kind_t>(31), nullptr, nullptr);
    std::size_t symbols = 0;
    for (auto it = all ? all->current() : SymMgrObjectPtr<ISymbolRange>(); it; it = all->current()) {
        ++symbols;
        all->next();
    }
    std::size_t const asked = heapInUse() - before;
    SymMgrObjectPtr<ISection> strings;
    unsigned long long names = 0;
    for (char const* const section : {".strtab", ".dynstr"}) {
        if (bank->sectionByName(section, strings) == status_Ok) {
            names += strings->size();
        }
    }
    double const count = symbols != 0 ? static_cast<double>(symbols) : 1;
    std::printf(
        "  %s: %zu symbols, %.1f bytes each once loaded (%.1f of them its name), %.1f once all were asked for\n",
        argv[1], symbols, static_cast<double>(loaded) / count, static_cast<double>(names) / count,
        static_cast<double>(asked) / count);
    SymMgrObjectPtr<ISourceLocation> location;
    bank->sourceLocationByAddress(bank->entryPoint().get(), location, ~0ULL, nullptr);
    std::size_t const withLines = heapInUse() - before;
    if (withLines > asked) {
        std::printf("  %s: %zu bytes of heap for all lines\n", argv[1], withLines - asked);
    }
    return 0;
}
