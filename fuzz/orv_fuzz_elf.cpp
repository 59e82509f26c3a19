// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// An ELF module through every query of its bank; a relocatable one also as the client lays it out.

#include "orv_cli_laid_out.h"
#include "orv_fuzz_input.h"

#include <cstdlib>

using namespace orv_fuzz;

namespace {

void ask(IModuleSymbolBank& bank, std::uint8_t const* data, std::size_t size) {
    bank.entryPoint();
    bank.memoryEstimate();
    Ranges it;
    bank.originalSymbolRanges(it, k_allKinds, nullptr, nullptr);
    walk(it);
    bank.nonOverlappedSymbolRanges(it, k_allKinds, nullptr, nullptr, nullptr);
    walk(it);
    SymMgrObjectPtr<IIterator<ISegment*>> segments;
    if (bank.segments(segments) == status_Ok) {
        for (ISegment* segment = segments->current(); segment != nullptr; segment = segments->current()) {
            SymMgrObjectPtr<IBuffer> buffer;
            segment->read(buffer);
            SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>> sections;
            segment->sections(sections, false);
            for (auto section = sections ? sections->current() : SymMgrObjectPtr<ISection>(); section;
                 section = sections->current()) {
                section->read(buffer);
                sections->next();
            }
            segments->next();
        }
    }
    // Addresses that the input itself holds are the likely ones.
    for (std::size_t i = 0; i + 8 <= size && i < 800; i += 8) {
        unsigned long long value = 0;
        __builtin_memcpy(&value, data + i, 8);
        askAt(bank, value);
    }
    if (size > 16) {
        bank.prefetcher()->putRVA(data[size / 2]);
        bank.originalSymbolRanges(it, symbol_kind_Function, nullptr, nullptr);
        walk(it);
    }
    for (char const* const name : {".text", ".zdebug_info", ""}) {
        SymMgrObjectPtr<ISection> section;
        SymMgrObjectPtr<IBuffer> buffer;
        if (bank.sectionByName(name, section) == status_Ok) {
            section->read(buffer);
            section->readAt(1, ~0ULL, buffer);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static InputFile const file;
    if (!file.write(data, size)) {
        return 0;
    }
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    status_t const status = manager->loadSymbolsFromModule(file.path(), nullptr, bank, arch_Unknown, true, "");
    if (status == status_Ok) {
        ask(*bank, data, size);
    } else if (status != status_BadFileFormat) {
        std::abort();
    }
    // A relocatable file also as the client lays it out.
    SymMgrObjectPtr<IModuleImage> const image = orv_cli::laidOutImage(file.path(), arch_Unknown);
    if (image && IModuleSymbolBank::create(bank, image, nullptr, true, "") == status_Ok) {
        ask(*bank, data, size);
    }
    return 0;
}
