// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Which sections of a file are compressed, and what is said of those that this build can't read.
#pragma once

#include "orv_cli_module.h"

namespace orv_cli {

struct CompressedSection {
    unsigned int index;
    std::string name;
    unsigned int type;       ///< ELFCOMPRESS_ZLIB and so on.
    unsigned long long size; ///< As its header says, without the compression.
};

/// Of an ELF file; none of any other. Both those that a flag tells of and those that are named .zdebug_.
std::vector<CompressedSection> compressedSections(IModuleImage& file);
std::string nameOfCompression(unsigned int type);
/// Why debug sections of the file that has the debug information, or the packed symbols of a stripped module, can't be
/// read, in one line; empty where there are none, or they can.
std::string unreadSections(Module& module, SymMgrObjectPtr<IModuleImage> const& image);
/// Name and version, and which compressions are read.
char const* versionText();

} // namespace orv_cli
