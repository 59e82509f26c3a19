// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Counted objects that threads share, and that clients may keep longer than anything that made them.
///
///     class Thunk : public SharedObject<SymMgrObject<IThunk>> { ... };
#pragma once

#include "orv/orv_object.h"

#include <atomic>

namespace ORV_3_30 {
namespace internal {

/// What the last release of an object comes to.
void endObject(IDeleteObserver* object);
void endObject(SymMgrObjectImpl* object);

} // namespace internal

/// Counts by itself and without a lock, in place of its base, so that no lock has to outlive the object.
/// Base: SymMgrObject or SymMgrObjectImpl.
template <typename Base> class SharedObject : public Base {
public:
    using Base::Base;

    unsigned int addRef() override { return m_count.fetch_add(1, std::memory_order_relaxed) + 1; }
    unsigned int release() override {
        unsigned int const count = m_count.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0) {
            internal::endObject(this);
        }
        return count;
    }

private:
    std::atomic<unsigned int> m_count{0};
};

} // namespace ORV_3_30
