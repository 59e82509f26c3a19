// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Names an address of a module: orv_name_address MODULE HEXADDRESS
///
/// All that it needs is the public headers and -lorv.

#include <orv/orv.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: orv_name_address MODULE HEXADDRESS\n");
        return 2;
    }
    orv::SymMgrObjectPtr<orv::ISymbolManager> manager;
    orv::ISymbolManager::create(manager);
    orv::SymMgrObjectPtr<orv::IModuleSymbolBank> bank;
    orv::status_t status = manager->loadSymbolsFromModule(argv[1], nullptr, bank, orv::arch_Unknown, false, "");
    if (orv::failed(status)) {
        std::fprintf(stderr, "%s: %s\n", argv[1], orv::toUString(status));
        return 1;
    }
    orv::SymMgrObjectPtr<orv::IAddress> address;
    if (bank->addressByValue(std::strtoull(argv[2], nullptr, 16), address) != orv::status_Ok) {
        std::puts("no such address");
        return 0;
    }
    orv::SymMgrObjectPtr<orv::ISymbolRange> range;
    status = bank->symbolRangeByAddress(address.get(), range, orv::symbol_kind_Function, nullptr);
    if (orv::failed(status)) {
        // Debug information that can't be read is reported once. The symbols of the ELF file answer from now on.
        std::fprintf(stderr, "%s: %s\n", argv[1], orv::toUString(status));
        status = bank->symbolRangeByAddress(address.get(), range, orv::symbol_kind_Function, nullptr);
    }
    if (status != orv::status_Ok) {
        std::puts("no function");
        return 0;
    }
    orv::SymMgrObjectPtr<orv::IAddress> start;
    range->startAddress(start);
    std::printf("%s+0x%llx\n", range->symbol()->demangledName(0), address->pseudoAddr() - start->pseudoAddr());
    return 0;
}
