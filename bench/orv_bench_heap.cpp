// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Prints the heap that a module's bank takes: orv_bench_heap MODULE [ROWS]
///
/// Sections that are held as they are in the file are told apart from what is made of them. ROWS, the rows
/// of the line table, makes the heap of the lines a figure for each.

#include "orv/orv.h"

#include <cstdio>
#include <cstdlib>
#include <malloc.h>

using namespace ORV_3_30;

namespace {

std::size_t heapInUse() {
    struct mallinfo2 const info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// Bytes of the sections that are kept in memory. The allocator counts the large ones, which stand in large
/// pages, up to the end of the last one.
std::size_t heldSections(IModuleSymbolBank& bank) {
    constexpr std::size_t k_largePage = std::size_t{1} << 21;
    std::size_t bytes = 0;
    for (char const* const name :
         {".strtab", ".dynstr", ".debug_info", ".debug_abbrev", ".debug_str", ".debug_line", ".debug_ranges"}) {
        SymMgrObjectPtr<ISection> section;
        if (bank.sectionByName(name, section) == status_Ok) {
            std::size_t const size = section->size() + 1;
            bytes += size > k_largePage / 2 ? (size + k_largePage - 1) / k_largePage * k_largePage : size;
        }
    }
    return bytes;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        std::fprintf(stderr, "usage: orv_bench_heap MODULE [ROWS]\n");
        return 2;
    }
    // Blocks with pages of their own count by their pages: there are to be none.
    mallopt(M_MMAP_THRESHOLD, 1 << 25);
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
    std::size_t const sections = heldSections(*bank);
    double const count = symbols != 0 ? static_cast<double>(symbols) : 1;
    auto const each = [&](std::size_t bytes) {
        return (static_cast<double>(bytes) - static_cast<double>(sections)) / count;
    };
    std::printf(
        "  %s: %zu symbols, %.1f bytes each once loaded, %.1f once all were asked for, beside %.1f MB for sections\n",
        argv[1], symbols, each(loaded), each(asked), static_cast<double>(sections) / 1e6);
    SymMgrObjectPtr<ISourceLocation> location;
    bank->sourceLocationByAddress(bank->entryPoint().get(), location, ~0ULL, nullptr);
    std::size_t const withLines = heapInUse() - before;
    if (argc == 3) {
        double const rows = std::strtod(argv[2], nullptr);
        std::printf("  %s: %.1f bytes of heap for each of %.0f line rows\n", argv[1],
                    static_cast<double>(withLines - asked) / rows, rows);
    }
    return 0;
}
