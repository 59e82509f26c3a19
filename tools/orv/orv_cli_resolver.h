// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Where the commands look for symbol files.
#pragma once

#include "orv_cli_module.h"
#include "orv_cli_outcomes.h"

#include <orv/orv_debuginfod.h>

#include <memory>

namespace orv_cli {

/// The file of --symbol-file and no other; without it those under the debug roots, then what the library finds by
/// itself, then, with --debuginfod, the servers.
class Resolver final : public ISymbolFileResolver {
public:
    explicit Resolver(CommonOptions const& options);
    ~Resolver();
    Resolver(Resolver const&) = delete;
    Resolver& operator=(Resolver const&) = delete;

    long long resolveSymbolFile(Candidates& candidates) override;
    /// What became of the candidates of the last load.
    std::vector<CandidateOutcome> const& outcomes() const { return m_outcomes; }
    /// Why one of these was not taken.
    std::string whyNot(CandidateOutcome const& outcome) const;
    /// What was sought for a module in vain, and where: nothing if debug information was found, or if none belongs to
    /// it.
    std::string missing(IModuleSymbolBank& bank) const;
    /// After a load: throws Failure if the file of --symbol-file was not taken, and says once what the servers had to
    /// say.
    void finish(std::string const& module);

private:
    void loadServers();
    long long decide(Candidates& candidates);
    /// Where companions of a kind are looked for, for people.
    std::string places(bool isOfBuildId) const;

    CommonOptions m_options;
    DebugRootsResolver m_roots;
    ISymbolFileResolver* m_servers = nullptr; ///< Of the library that is loaded for it.
    decltype(&orvDestroyDebuginfodResolver) m_destroy = nullptr;
    decltype(&orvLastDebuginfodAnswer) m_lastAnswer = nullptr;
    bool m_isTaken = false;
    std::vector<CandidateOutcome> m_outcomes;
};

} // namespace orv_cli
