// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Where an ELF file holds the data of an Android OAT file.
#pragma once

#include "orv/orv_address.h"

namespace ORV_3_30 {

class ElfHelper;
class IFileFormatLoader;

struct OatPlace {
    SymMgrObjectPtr<IAddress> data; ///< Null where there is none.
    SymMgrObjectPtr<IAddress> exec; ///< The native code in them.
    long long size = 0;             ///< From data to the end of the code.

    bool isThere() const { return data && exec && size != 0; }
};

/// True if clients want OAT files read as such, by the environment.
bool readsOatFiles();
/// Looks among the first dynamic symbols.
OatPlace findOatPlace(ElfHelper const& helper, IFileFormatLoader* loader);

} // namespace ORV_3_30
