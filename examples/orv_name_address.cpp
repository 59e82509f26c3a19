/// Names an address of a module: orv_name_address MODULE HEXADDRESS
///
/// All that it needs is the public headers and -lorv.

#include <orv/orv.h>

#include <cstdio>
#include <cstdlib>

using namespace ORV_3_30;

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: orv_name_address MODULE HEXADDRESS\n");
        return 2;
    }
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    status_t status = manager->loadSymbolsFromModule(argv[1], nullptr, bank, arch_Unknown, false, "");
    if (failed(status)) {
        std::fprintf(stderr, "%s: %s\n", argv[1], toUString(status));
        return 1;
    }
    SymMgrObjectPtr<IAddress> address;
    SymMgrObjectPtr<ISymbolRange> range;
    if (bank->addressByValue(std::strtoull(argv[2], nullptr, 16), address) != status_Ok ||
        bank->symbolRangeByAddress(address.get(), range, symbol_kind_Function, nullptr) != status_Ok) {
        std::puts("no function");
        return 0;
    }
    SymMgrObjectPtr<IAddress> start;
    range->startAddress(start);
    std::printf("%s+0x%llx\n", range->symbol()->demangledName(0), address->pseudoAddr() - start->pseudoAddr());
    return 0;
}
