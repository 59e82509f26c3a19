// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Reference counting: the root interface, the counter, the two bases and the smart pointer.
///
///     SymMgrObjectPtr<ISymbolManager> manager;       // holds nothing
///     ISymbolManager::create(manager);               // count 1
///     SymMgrObjectPtr<ISymbolManager> other(manager); // count 2; both drop theirs by themselves
///
/// An object is born with count 0; the first pointer that takes it makes that 1. Counts are plain
/// integers, guarded by the lock that the object was given. An object without a lock belongs to one
/// thread at a time.
#pragma once

#include "orv/orv_forward.h"

#include <pthread.h>

#include <utility>

namespace ORV_3_30 {

/// Root of all counted interfaces. A client never deletes one of them.
class ORV_API ISymMgrObject {
public:
    /// Raises the count and returns the new one.
    virtual unsigned int addRef() = 0;
    /// Lowers the count and returns the new one. At 0 the object is gone.
    virtual unsigned int release() = 0;

protected:
    ~ISymMgrObject() = default;
};

/// A lock that may be taken again by the thread that holds it.
class ILock {
public:
    virtual int lock() = 0;
    virtual int unlock() = 0;

protected:
    ~ILock() = default;
};

/// The one lock class: a recursive mutex. Recursion is needed, because the last release of an
/// object runs its destructor under the lock that guards the count.
class OrvLock final : public ILock {
public:
    OrvLock() {
        pthread_mutexattr_init(&m_attributes);
        pthread_mutexattr_settype(&m_attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&m_mutex, &m_attributes);
    }
    ~OrvLock() {
        pthread_mutex_destroy(&m_mutex);
        pthread_mutexattr_destroy(&m_attributes);
    }
    OrvLock(OrvLock const&) = delete;
    OrvLock& operator=(OrvLock const&) = delete;

    int lock() override { return pthread_mutex_lock(&m_mutex); }
    int unlock() override { return pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutexattr_t m_attributes;
    pthread_mutex_t m_mutex;
};

/// Holds a lock for a scope. A null lock is no lock.
class LockGuard {
public:
    explicit LockGuard(ILock* lock) : m_lock(lock) {
        if (m_lock != nullptr) {
            m_lock->lock();
        }
    }
    ~LockGuard() {
        if (m_lock != nullptr) {
            m_lock->unlock();
        }
    }
    LockGuard(LockGuard const&) = delete;
    LockGuard& operator=(LockGuard const&) = delete;

private:
    ILock* m_lock;
};

namespace internal {

/// Told when a counter reaches zero.
class IDeleteObserver {
public:
    virtual void onDelete() = 0;

protected:
    ~IDeleteObserver() = default;
};

/// The counter. The layout is part of the interface: clients compile SymMgrObject against it.
class RefCountHelper {
public:
    /// Counts under an outside lock, or under none.
    explicit RefCountHelper(ILock* lock = nullptr) : m_lock(lock) {}
    /// Counts under a lock of its own if threadSafe is true, otherwise under none.
    explicit RefCountHelper(bool threadSafe) : m_lock(threadSafe ? new OrvLock : nullptr), m_ownsLock(threadSafe) {}

    void setObserver(IDeleteObserver* observer) { m_observer = observer; }

    ORV_API unsigned int addRef();
    /// At zero the observer is told under the lock; an extra release wraps and tells nobody.
    ORV_API unsigned int release();
    ORV_API void refCount(unsigned int& out) const;

private:
    unsigned int m_count = 0;
    IDeleteObserver* m_observer = nullptr;
    ILock* m_lock;
    bool m_ownsLock = false;
};

} // namespace internal

/// Base of the classes that serve a counted interface T.
template <typename T> class SymMgrObject : public T, public internal::IDeleteObserver {
public:
    explicit SymMgrObject(ILock* lock = nullptr) : m_refCount(lock) { m_refCount.setObserver(this); }
    explicit SymMgrObject(bool threadSafe) : m_refCount(threadSafe) { m_refCount.setObserver(this); }
    SymMgrObject(SymMgrObject const&) = delete;
    SymMgrObject& operator=(SymMgrObject const&) = delete;

    unsigned int addRef() override { return m_refCount.addRef(); }
    unsigned int release() override { return m_refCount.release(); }
    virtual ~SymMgrObject() = default; // NOLINT(modernize-use-override): not every T has one
    virtual void refCount(unsigned int& out) const { m_refCount.refCount(out); }
    void onDelete() override { delete this; }

private:
    internal::RefCountHelper m_refCount;
};

/// Lighter counted base for objects that have no counted interface of their own.
class SymMgrObjectImpl {
public:
    explicit SymMgrObjectImpl(ILock* lock = nullptr) : m_lock(lock) {}
    SymMgrObjectImpl(SymMgrObjectImpl const&) = delete;
    SymMgrObjectImpl& operator=(SymMgrObjectImpl const&) = delete;
    virtual ~SymMgrObjectImpl() = default;

    virtual unsigned int addRef() {
        LockGuard guard(m_lock);
        return ++m_count;
    }
    virtual unsigned int release() {
        LockGuard guard(m_lock);
        unsigned int const count = --m_count;
        if (count == 0) {
            delete this;
        }
        return count;
    }

private:
    ILock* m_lock;
    unsigned int m_count = 0;
};

/// Holds one reference on a counted object, or nothing.
template <typename T> class ORV_API SymMgrObjectPtr {
public:
    SymMgrObjectPtr() = default;
    SymMgrObjectPtr(T* object) : m_object(object) { // NOLINT(google-explicit-constructor): factories assign raw objects
        if (m_object != nullptr) {
            m_object->addRef();
        }
    }
    SymMgrObjectPtr(SymMgrObjectPtr const& other) : SymMgrObjectPtr(other.m_object) {}
    SymMgrObjectPtr(SymMgrObjectPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~SymMgrObjectPtr() {
        if (m_object != nullptr) {
            m_object->release();
        }
    }

    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): the same pointer changes nothing
    SymMgrObjectPtr& operator=(SymMgrObjectPtr const& other) { return *this = other.m_object; }
    /// Drops the old reference before it takes the new one.
    SymMgrObjectPtr& operator=(T* object) {
        if (m_object != object) {
            reset();
            m_object = object;
            if (m_object != nullptr) {
                m_object->addRef();
            }
        }
        return *this;
    }

    void reset() {
        if (m_object != nullptr) {
            m_object->release();
            m_object = nullptr;
        }
    }

    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }
    friend bool operator==(SymMgrObjectPtr const& a, SymMgrObjectPtr const& b) { return a.m_object == b.m_object; }
    friend bool operator!=(SymMgrObjectPtr const& a, SymMgrObjectPtr const& b) { return a.m_object != b.m_object; }

private:
    T* m_object = nullptr;
};

} // namespace ORV_3_30
