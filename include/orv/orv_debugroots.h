// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A ready resolver that looks for companions where distributions put them.
///
///     DebugRootsResolver resolver;                       // /usr/lib/debug
///     manager->loadSymbolsFromModule("/bin/ls", &resolver, bank, arch_Unknown, false, "");
#pragma once

#include "orv/orv_symbolfileresolver.h"

#include <string>
#include <vector>

namespace ORV_3_30 {

/// Offers each candidate the files that it may mean under a list of roots: of a build id
/// ROOT/.build-id/xx/yyyy.debug, of a debug link ROOT/<directory of the module>/<name>. A build id in any root goes
/// ahead of a debug link, and the file that an earlier load has taken ahead of others, as long as it is there. A file
/// is taken only if the candidate accepts it, by build id or CRC; where none is, the first candidate that is valid by
/// itself is taken, as without a resolver.
///
/// Without state but the roots: one resolver may serve several loads at a time.
class ORV_API DebugRootsResolver : public ISymbolFileResolver {
public:
    /// The root of distributions, /usr/lib/debug.
    DebugRootsResolver();
    /// In the order of preference.
    explicit DebugRootsResolver(std::vector<std::string> roots);
    virtual ~DebugRootsResolver();

    long long resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& candidates) override;

private:
    std::vector<std::string> m_roots;
};

/// The build id that a candidate looks for, in hexadecimal digits; empty once it has a file, and for a candidate that
/// goes by anything else. For resolvers that ask elsewhere.
ORV_API std::string wantedBuildId(ISymbolFileToResolve& candidate);

} // namespace ORV_3_30
