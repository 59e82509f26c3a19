// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// An ELF module through every query of its bank, by both readings; a relocatable one also as the client lays it out.

#include "orv_cli_laid_out.h"
#include "orv_fuzz_input.h"

#include <cstdlib>

using namespace orv_fuzz;

namespace {

void askByPath(InputFile const& file, std::uint8_t const* data, std::size_t size) {
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    for (reading_t const asked : {reading_Modern, reading_Classic}) {
        setReading(asked);
        status_t const status = manager->loadSymbolsFromModule(file.path(), nullptr, bank, arch_Unknown, true, "");
        if (status == status_Ok) {
            askAll(*bank, data, size);
        } else if (status != status_BadFileFormat) {
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static InputFile const file;
    if (!file.write(data, size)) {
        return 0;
    }
    askByPath(file, data, size);
    // A relocatable file also as the client lays it out.
    SymMgrObjectPtr<IModuleImage> const image =
        orv_cli::laidOutImage(IModuleImage::create(file.path(), arch_Unknown, false));
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    if (image && IModuleSymbolBank::create(bank, image, nullptr, true, "") == status_Ok) {
        askAll(*bank, data, size);
    }
    return 0;
}
