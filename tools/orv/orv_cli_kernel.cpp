// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Looks at a list of a kernel's symbols up to the first line that tells of code at an address.
#include "orv_cli_kernel.h"

#include <fstream>

namespace orv_cli {

void noteKernelList(std::string const& path, CommonOptions const& options) {
    std::ifstream list(path);
    bool hasCode = false;
    for (std::string line; std::getline(list, line);) {
        std::size_t const digits = line.find_first_of(" \t");
        bool const isCode = digits != std::string::npos && digits + 1 < line.size() &&
                            (line[digits + 1] == 'T' || line[digits + 1] == 't');
        if (isCode && line.find_first_not_of('0') < digits) {
            return;
        }
        hasCode |= isCode;
    }
    if (hasCode) {
        note(path + ": all addresses are 0: the kernel hides them from who has no privilege: read it as root, or with "
                    "kernel.kptr_restrict set to 0",
             options);
    } else {
        note(path + ": has no symbol of code: put the kernel's own list beside it, or name it by --symbol-file",
             options);
    }
}

} // namespace orv_cli
