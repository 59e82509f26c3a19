// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Which inlined bodies hold an address of a function.
#pragma once

#include "orv_cli_module.h"

#include <map>
#include <utility>
#include <vector>

namespace orv_cli {

/// Follows addresses inward. It remembers what it had to look through, so it belongs to one module and one thread.
class InlineChains {
public:
    /// The ranges at an address from a function's inward: the function's own, then those of the inlined bodies that
    /// hold it. Bodies without extent hold nothing: compilers leave the calls behind of which no code has stayed.
    void follow(ISymbolRange& function, IAddress& where, std::vector<SymMgrObjectPtr<ISymbolRange>>& out);

private:
    /// A body with an extent, and how far it and those in front of it reach.
    struct Body {
        unsigned long long start;
        unsigned long long end;
        unsigned long long greatestEnd;
        SymMgrObjectPtr<ISymbolRange> range;
    };
    using Level = std::vector<Body>; ///< By start, of equal ones the longest first.
    Level const& levelOf(ISymbolRange& outer);
    SymMgrObjectPtr<ISymbolRange> bodyAt(ISymbolRange& outer, unsigned long long address);

    /// By symbol and start of the range around.
    std::map<std::pair<ISymbol*, unsigned long long>, Level> m_levels;
};

} // namespace orv_cli
