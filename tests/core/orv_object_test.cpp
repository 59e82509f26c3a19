// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "support/orv_test_support.h"

using namespace orv_test;

namespace {

/// Tells when it goes, and whether its own lock could be taken then.
class Counted : public SymMgrObject<ISymMgrObject> {
public:
    Counted(bool& isGone, ILock* lock) : SymMgrObject(lock), m_isGone(isGone), m_lock(lock) {}
    Counted(bool& isGone, bool threadSafe) : SymMgrObject(threadSafe), m_isGone(isGone) {}
    ~Counted() override {
        LockGuard guard(m_lock); // must not block: the last release holds it
        m_isGone = true;
    }

private:
    bool& m_isGone;
    ILock* m_lock = nullptr;
};

class RecordingLock : public ILock {
public:
    int lock() override { return ++depth; }
    int unlock() override {
        ++unlocks;
        return --depth;
    }
    int depth = 0;
    int unlocks = 0;
};

unsigned int countOf(Counted& object) {
    unsigned int count = 99;
    object.refCount(count);
    return count;
}

} // namespace

TEST(Object, CountsFromZeroAndGoesWithTheLastRelease) {
    bool isGone = false;
    auto* const object = new Counted(isGone, nullptr);
    EXPECT_EQ(countOf(*object), 0U);
    {
        SymMgrObjectPtr<Counted> a(object);
        SymMgrObjectPtr<Counted> b(a);
        EXPECT_EQ(countOf(*object), 2U);
        a = a.get();
        b = a;
        EXPECT_EQ(countOf(*object), 2U) << "assigning the same pointer changes nothing";
        SymMgrObjectPtr<Counted> c(std::move(b));
        EXPECT_EQ(countOf(*object), 2U);
        c.reset();
        EXPECT_FALSE(isGone);
        EXPECT_EQ(countOf(*object), 1U);
    }
    EXPECT_TRUE(isGone);
}

TEST(Object, ReleasesTheOldBeforeItTakesTheNew) {
    bool isFirstGone = false;
    bool isSecondGone = false;
    SymMgrObjectPtr<ISymMgrObject> pointer(new Counted(isFirstGone, nullptr));
    auto* const second = new Counted(isSecondGone, nullptr);
    pointer = second;
    EXPECT_TRUE(isFirstGone);
    EXPECT_EQ(countOf(*second), 1U);
}

TEST(Object, DestroysUnderItsLockAndUnlocksAfterwards) {
    struct Light : SymMgrObjectImpl {
        Light(bool& gone, ILock* lock) : SymMgrObjectImpl(lock), isGone(gone) {}
        ~Light() override { isGone = true; }
        bool& isGone;
    };
    RecordingLock lock;
    bool isGone = false;
    bool isLightGone = false;
    { SymMgrObjectPtr<Counted> const pointer(new Counted(isGone, &lock)); }
    { SymMgrObjectPtr<Light> const pointer(new Light(isLightGone, &lock)); }
    EXPECT_TRUE(isGone && isLightGone);
    EXPECT_EQ(lock.depth, 0);
    EXPECT_EQ(lock.unlocks, 5) << "two for each, and the destructor's";
}

TEST(Object, OwnLockOutlivesTheObject) {
    bool isGone = false;
    auto* const object = new Counted(isGone, true);
    EXPECT_EQ(object->addRef(), 1U);
    EXPECT_EQ(object->release(), 0U); // a sanitizer tells if the lock is touched too late, or lost
    EXPECT_TRUE(isGone);
}

TEST(Object, CountersSurviveOddEnds) {
    class Observer : public internal::IDeleteObserver {
    public:
        void onDelete() override {
            ++calls;
            throw std::bad_alloc();
        }
        int calls = 0;
    } observer;
    RecordingLock lock;
    internal::RefCountHelper helper(&lock);
    helper.setObserver(&observer);
    EXPECT_EQ(helper.release(), 0xFFFFFFFFU) << "an extra release wraps, and tells nobody";
    EXPECT_EQ(helper.addRef(), 0U);
    EXPECT_EQ(helper.addRef(), 1U);
    EXPECT_THROW(helper.release(), std::bad_alloc);
    EXPECT_EQ(observer.calls, 1);
    EXPECT_EQ(lock.depth, 0) << "unlocked though the destruction throws";
}
