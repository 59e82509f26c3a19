// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What becomes of the candidates for a module's debug information.
#pragma once

#include "orv_cli_module.h"

#include <functional>
#include <string>
#include <vector>

namespace orv_cli {

enum class CandidateKind { BuildId, DebugLink, Module, KernelList, ProgramFile };

struct CandidateOutcome {
    CandidateKind kind;
    symbol_file_format_t format;
    symbol_file_validity_t validity;
    bool isTaken;
    std::string name;                 ///< Of the file, if it has one by now.
    std::string sought;               ///< Before anybody has offered it a file.
    std::vector<std::string> refused; ///< What it was offered in vain.
};

using Candidates = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>;

/// Decides as a resolver does.
using Decide = std::function<long long(Candidates&)>;
/// Has somebody decide, or nobody, and tells what was offered to whom.
std::vector<CandidateOutcome> resolve(Decide const& decide, Candidates const& candidates, long long& decision);

/// Why a candidate did not take a file.
std::string whyRefused(std::string const& path, CandidateKind kind);

} // namespace orv_cli
