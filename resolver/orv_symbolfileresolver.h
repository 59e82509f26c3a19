// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The default choice among the files that may hold a module's symbols.
#pragma once

#include "orv/orv_symbolfileresolver.h"

namespace ORV_3_30 {

/// Takes the first valid candidate. It searches nothing and validates nothing: a candidate that
/// needs a path from outside is passed over. Without state.
class SymbolFileResolver final : public ISymbolFileResolver {
public:
    long long resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& candidates) override;
};

} // namespace ORV_3_30
