// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Android OAT files: whether a module is one, and what its header says.
#pragma once

#include "orv_cli_module.h"

#include <optional>

namespace orv_cli {

struct OatFacts {
    std::string version; ///< As the header has it, in digits.
    unsigned int dexFiles;
    std::size_t methods; ///< That were compiled.
};

/// Of a module that is read as an OAT file; nothing for any other.
std::optional<OatFacts> oatFactsOf(Module& module);
/// How to have a module read that is an OAT file, where that is not asked for; empty for all others.
std::string unreadOat(Module& module);

} // namespace orv_cli
