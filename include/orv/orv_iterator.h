// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The iterator through which every collection reaches a client.
///
///     for (auto symbol = it->current(); symbol; symbol = it->current()) {
///         use(*symbol);
///         it->next();
///     }
#pragma once

#include "orv/orv_object.h"

namespace ORV_3_30 {

/// Walks a collection. A fresh iterator stands on the first element.
/// Iterators have no lock: each belongs to one thread at a time. They must not outlive the bank.
template <typename T> class ORV_API IIterator : public ISymMgrObject {
public:
    /// The element at the cursor, a counted copy where T counts; null at the end.
    virtual T current() = 0;
    /// Moves on by one. True if there is a current element now; at the end it does nothing.
    virtual bool next() = 0;
    /// Goes back to the first element.
    virtual void reset() = 0;

protected:
    ~IIterator() = default;
};

} // namespace ORV_3_30
