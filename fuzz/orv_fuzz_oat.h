// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// OAT data in an ELF file, and all questions about it.
#pragma once

#include "orv_fuzz_input.h"
#include "support/orv_elf_builder.h"

#include <cstdlib>

namespace orv_fuzz {

/// executableOffset: where the native code begins in the data.
inline void askAboutOat(std::string const& data, std::uint64_t executableOffset) {
    constexpr std::uint64_t k_base = 0x10000;
    constexpr std::uint64_t k_headers = 120; // of the file and its one segment
    static InputFile const file;
    static bool const isSet = ::setenv("ORV_USE_LEGACY_OAT_READER", "1", 1) == 0;
    if (!isSet || data.size() < k_headers) {
        return;
    }
    orv_test::ElfBuilder elf;
    elf.dynamicSymbols = true;
    elf.load(PF_R | PF_X, k_base, data.size(), k_headers, data.size());
    elf.section(".rodata", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, k_base, data);
    elf.symbol("oatdata", STB_GLOBAL, STT_OBJECT, k_base, data.size());
    elf.symbol("oatexec", STB_GLOBAL, STT_OBJECT, k_base + executableOffset % data.size(), 4);
    elf.symbol("oatlastword", STB_GLOBAL, STT_OBJECT, k_base + data.size() - 4, 4);
    std::string const module = elf.bytes();
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    if (!file.write(module.data(), module.size()) ||
        manager->loadSymbolsFromModule(file.path(), nullptr, bank, arch_Unknown, true, "") != status_Ok) {
        std::abort();
    }
    Ranges it;
    bank->originalSymbolRanges(it, symbol_kind_Data, nullptr, nullptr); // a load of another kind, ahead of all
    askAll(*bank, reinterpret_cast<std::uint8_t const*>(data.data()), data.size());
    for (std::uint64_t offset = 0; offset < data.size(); offset += data.size() / 64 + 1) {
        askAt(*bank, k_base + offset);
    }
}

} // namespace orv_fuzz
