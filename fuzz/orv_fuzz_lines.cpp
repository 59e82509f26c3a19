// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Line programs: the input is the line section of a module whose one unit names offset 0 of it.

#include "orv_fuzz_input.h"
#include "support/orv_elf_builder.h"

using namespace orv_fuzz;
using orv_test::ElfBuilder;

namespace {

std::string text(std::initializer_list<int> bytes) {
    std::string result;
    for (int const byte : bytes) {
        result += static_cast<char>(byte);
    }
    return result;
}

std::string moduleOf(std::string const& lines) {
    ElfBuilder elf;
    elf.load(PF_R | PF_X, 0x1000, 0x10000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x400, '\x90'));
    // A unit in "/d" with a function "f" over all of the code.
    elf.section(".debug_abbrev", SHT_PROGBITS, 0, 0, text({1, 0x11, 1, 0x1B, 8, 0x10, 6,   0,    0,   2, 0x2E, 0, 3,
                                                           8, 0x11, 1, 0x12, 6, 0x3A, 0xB, 0x3B, 0xB, 0, 0,    0}));
    std::string entries = text(
        {4, 0, 0, 0, 0, 0, 8, 1, '/', 'd', 0, 0, 0, 0, 0, 2, 'f', 0, 0, 0x10, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 1, 1, 0});
    elf.section(".debug_info", SHT_PROGBITS, 0, 0, text({static_cast<int>(entries.size()), 0, 0, 0}) + entries);
    elf.section(".debug_line", SHT_PROGBITS, 0, 0, lines);
    return elf.bytes();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static InputFile const file;
    std::string const module = moduleOf({reinterpret_cast<char const*>(data), size});
    if (!file.write(module.data(), module.size())) {
        return 0;
    }
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    if (manager->loadSymbolsFromModule(file.path(), nullptr, bank, arch_Unknown, true, "") != status_Ok) {
        std::abort();
    }
    for (unsigned long long address = 0x1000; address < 0x1400; address += 0x11) {
        askAt(*bank, address);
    }
    Ranges it;
    bank->originalSymbolRanges(it, symbol_kind_Function, nullptr, nullptr);
    walk(it);
    return 0;
}
