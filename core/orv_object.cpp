// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Reference counts, under the lock that the owner gave or one of the object's own.
#include "core/orv_shared_object.h"

#include <new>

namespace ORV_3_30::internal {

void endObject(IDeleteObserver* object) { object->onDelete(); }

void endObject(SymMgrObjectImpl* object) { delete object; }

unsigned int RefCountHelper::addRef() {
    LockGuard guard(m_lock);
    return ++m_count;
}

unsigned int RefCountHelper::release() {
    // The object may go while the lock is held, and this helper with it: what is needed afterwards
    // is copied first. The lock itself is not part of the object, and stays if the object does.
    struct Unlocker {
        ILock* lock;
        ILock* owned = nullptr;
        ~Unlocker() {
            if (lock != nullptr) {
                lock->unlock();
            }
            // The storage alone: by design no destructor runs and the mutex is not destroyed.
            ::operator delete(owned);
        }
    };
    if (m_lock != nullptr) {
        m_lock->lock();
    }
    Unlocker unlocker{m_lock};
    unsigned int const count = --m_count;
    if (count != 0) {
        return count;
    }
    ILock* const owned = m_ownsLock ? m_lock : nullptr;
    if (m_observer != nullptr) {
        m_observer->onDelete();
    }
    unlocker.owned = owned;
    return 0;
}

void RefCountHelper::refCount(unsigned int& out) const {
    LockGuard guard(m_lock);
    out = m_count;
}

} // namespace ORV_3_30::internal
