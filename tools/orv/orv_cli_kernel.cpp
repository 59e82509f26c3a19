// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A list that names no function is looked at: the kernel hides addresses as zeros.
#include "orv_cli_kernel.h"

#include "orv_cli_find.h"

#include <fstream>
#include <limits>

namespace orv_cli {
namespace {

/// True if the first lines that have an address have 0.
bool isHidden(std::string const& path) {
    constexpr unsigned int k_lines = 1000;
    std::ifstream list(path);
    bool hasAddress = false;
    for (unsigned int line = 0; line < k_lines && list; ++line) {
        unsigned long long address = 0;
        if (list >> std::hex >> address) {
            hasAddress = true;
            list.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        }
        if (address != 0) {
            return false;
        }
    }
    return hasAddress;
}

} // namespace

void noteKernelList(Module& module, CommonOptions const& options) {
    Ranges functions;
    auto const ask = [&] {
        return module.bank().originalSymbolRanges(functions, symbol_kind_Function, nullptr, nullptr);
    };
    if (!module.isListedKernel() || module.load(ask) == status_Ok) {
        return;
    }
    std::string const path = module.bank().symFileName();
    note(path + (isHidden(path) ? ": all addresses are 0: the kernel hides them from who has no privilege: read it as "
                                  "root, or with kernel.kptr_restrict set to 0"
                                : ": has no symbol of code: put the kernel's own list beside it, or name it by "
                                  "--symbol-file"),
         options);
}

} // namespace orv_cli
