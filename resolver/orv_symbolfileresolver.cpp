// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The first candidate that is valid, in their order.
#include "resolver/orv_symbolfileresolver.h"

namespace ORV_3_30 {

long long
SymbolFileResolver::resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& candidates) {
    candidates->reset();
    long long index = 0;
    for (auto candidate = candidates->current(); candidate; candidate = candidates->current()) {
        if (candidate->validity() == symbolFileValid) {
            return index;
        }
        candidates->next();
        ++index;
    }
    return -1;
}

} // namespace ORV_3_30
