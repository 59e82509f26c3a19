// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A resolver that asks debuginfod servers for companions. In a library of its own: link with -lorv_debuginfod.
///
///     DebugRootsResolver local;
///     DebuginfodResolver resolver(&local);
///     manager->loadSymbolsFromModule("/bin/ls", &resolver, bank, arch_Unknown, false, "");
#pragma once

#include "orv/orv_symbolfileresolver.h"

namespace ORV_3_30 {

/// Asks another resolver first, and where that finds nothing the servers of DEBUGINFOD_URLS, by build id. Does nothing
/// of its own where the variable is not set. What a server sends is kept in the folder and for the time that the
/// debuginfod client library is set to, and is taken only if the candidate accepts it. DEBUGINFOD_TIMEOUT and
/// DEBUGINFOD_MAXTIME bound the time, in seconds (debuginfod_find_debuginfo(3)).
///
/// Shows how much has come on standard error, if that is a terminal. A resolver serves one load at a time.
class ORV_API DebuginfodResolver : public ISymbolFileResolver {
public:
    /// first is asked before the servers, and must outlive the resolver; null stands for the default choice.
    explicit DebuginfodResolver(ISymbolFileResolver* first);
    virtual ~DebuginfodResolver();
    DebuginfodResolver(DebuginfodResolver const&) = delete;
    DebuginfodResolver& operator=(DebuginfodResolver const&) = delete;

    long long resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& candidates) override;
    /// Why the servers gave nothing in the last load, for people; the empty string if they gave the companion or were
    /// not asked. Lives until the next load.
    char const* lastAnswer() const;

private:
    struct State;
    State* m_state; ///< Owned.
};

/// The same for programs that load the library when they need it, and know no more of it than these. The caller owns
/// what is created, and gives it back.
extern "C" ORV_API ISymbolFileResolver* orvCreateDebuginfodResolver(ISymbolFileResolver* first);
extern "C" ORV_API void orvDestroyDebuginfodResolver(ISymbolFileResolver* resolver);
/// lastAnswer of what was created.
extern "C" ORV_API char const* orvLastDebuginfodAnswer(ISymbolFileResolver* resolver);

} // namespace ORV_3_30

namespace orv = ORV_3_30;
