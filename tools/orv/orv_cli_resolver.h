/// Where the commands look for symbol files.
#pragma once

#include "orv_cli_module.h"

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

    long long resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& candidates) override;
    /// After a load: throws Failure if the file of --symbol-file was not taken, and says once what the servers had to
    /// say.
    void finish(std::string const& module);
    /// Where companions of a kind are looked for, for people.
    std::string places(bool isOfBuildId) const;

private:
    void loadServers();

    CommonOptions m_options;
    DebugRootsResolver m_roots;
    ISymbolFileResolver* m_servers = nullptr; ///< Of the library that is loaded for it.
    decltype(&orvDestroyDebuginfodResolver) m_destroy = nullptr;
    decltype(&orvLastDebuginfodAnswer) m_lastAnswer = nullptr;
    bool m_isTaken = false;
};

} // namespace orv_cli
