#include "TQAudioRecordLock.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

/// Whether a thread of its own could take the lock now.
bool isFree(NSRecursiveLock& lock) {
    bool isTaken = false;
    std::thread([&] {
        isTaken = lock.tryLock();
        if (isTaken) {
            lock.unlock();
        }
    }).join();
    return isTaken;
}

}  // namespace

TEST(TQAudioRecordLockTest, HoldsTheLockForItsScope) {
    const auto lock = std::make_shared<NSRecursiveLock>();
    {
        const TQAudioRecordLock guard(lock);
        EXPECT_FALSE(isFree(*lock));
    }
    EXPECT_TRUE(isFree(*lock));
}

TEST(TQAudioRecordLockTest, GuardsOfOneThreadNest) {
    const auto lock = std::make_shared<NSRecursiveLock>();
    const TQAudioRecordLock outer(lock);
    { const TQAudioRecordLock inner(lock); }
    EXPECT_FALSE(isFree(*lock));
}

TEST(TQAudioRecordLockTest, KeepsTheLockAlive) {
    auto lock = std::make_shared<NSRecursiveLock>();
    const std::weak_ptr<NSRecursiveLock> observer = lock;
    {
        const TQAudioRecordLock guard(std::move(lock));
        EXPECT_FALSE(observer.expired());
    }
    EXPECT_TRUE(observer.expired());
}

TEST(TQAudioRecordLockTest, EarlyUnlockEndsTheGuardForGood) {
    auto lock = std::make_shared<NSRecursiveLock>();
    TQAudioRecordLock guard(lock);
    guard.unlock();
    EXPECT_TRUE(isFree(*lock));
    EXPECT_EQ(1, lock.use_count()) << "the guard still holds on to it";
    guard.lock();
    EXPECT_TRUE(isFree(*lock)) << "a later lock() must do nothing";
    guard.unlock();
    EXPECT_TRUE(isFree(*lock));
}

TEST(TQAudioRecordLockTest, LockTakesTheHeldLockOnceMore) {
    const auto lock = std::make_shared<NSRecursiveLock>();
    {
        TQAudioRecordLock guard(lock);
        guard.lock();
    }
    // The destructor gives back one of the two holds.
    EXPECT_FALSE(isFree(*lock));
    lock->unlock();
    EXPECT_TRUE(isFree(*lock));
}

TEST(TQAudioRecordLockTest, NullLockMakesEverythingANoOp) {
    TQAudioRecordLock guard(nullptr);
    guard.lock();
    guard.unlock();
    guard.lock();
    SUCCEED() << "the destructor follows";
}
