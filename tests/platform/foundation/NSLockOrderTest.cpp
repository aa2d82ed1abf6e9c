#include <Foundation/NSLock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

// The checker itself, which works in every build; that NSRecursiveLock asks it, in debug builds.

namespace {

int places[4];
const void* const a = &places[0];
const void* const b = &places[1];
const void* const c = &places[2];

void take(const void* lock) {
    NSLockOrder::willLock(lock);
    NSLockOrder::didLock(lock);
}

void takeInOrder(std::initializer_list<const void*> locks) {
    for (const void* lock : locks) {
        take(lock);
    }
    for (const void* lock : locks) {
        NSLockOrder::didUnlock(lock);
    }
}

TEST(NSLockOrder, TheSameOrderMayBeRepeated) {
    takeInOrder({a, b, c});
    takeInOrder({a, b, c});
    takeInOrder({a, c});
    std::thread([] { takeInOrder({b, c}); }).join();
}

TEST(NSLockOrder, AReversedOrderEndsTheProcessAndNamesBothLocks) {
    NSLockOrder::setName(a, "first");
    NSLockOrder::setName(b, "second");
    takeInOrder({a, b});
    EXPECT_DEATH(takeInOrder({b, a}), "first .* is taken while second .* is held");
}

TEST(NSLockOrder, AnOrderReversedOnAnotherThreadCountsToo) {
    std::thread([] { takeInOrder({a, b}); }).join();
    EXPECT_DEATH(takeInOrder({b, a}), "against the order");
}

TEST(NSLockOrder, ACircleOfThreeIsFound) {
    takeInOrder({a, b});
    takeInOrder({b, c});
    EXPECT_DEATH(takeInOrder({c, a}), "against the order");
}

TEST(NSLockOrder, AStatedOrderCountsBeforeItWasSeen) {
    NSLockOrder::state(a, b);
    takeInOrder({a, b});
    EXPECT_DEATH(takeInOrder({b, a}), "against the order");
}

TEST(NSLockOrder, ALockHeldAlreadyMayBeTakenAgain) {
    take(a);
    take(b);
    take(a);
    NSLockOrder::didUnlock(a);
    NSLockOrder::didUnlock(b);
    // Still held once: the order goes on counting.
    take(c);
    NSLockOrder::didUnlock(c);
    NSLockOrder::didUnlock(a);
    EXPECT_DEATH(takeInOrder({c, a}), "against the order");
}

TEST(NSLockOrder, AReleasedLockIsNotHeld) {
    takeInOrder({a});
    takeInOrder({b});
    takeInOrder({b, a});
}

TEST(NSLockOrder, ADestroyedLockLeavesNothingBehind) {
    takeInOrder({a, b});
    NSLockOrder::forget(a);
    takeInOrder({b, a});
}

TEST(NSLockOrder, LockOfAnUnknownPlaceMayBeReleased) {
    NSLockOrder::didUnlock(a);
    NSLockOrder::forget(a);
    takeInOrder({a});
}

TEST(NSLockOrder, MoreLocksThanItHasRoomForGoUnchecked) {
    std::vector<char> many(5000);
    for (const char& place : many) {
        take(&place);
        NSLockOrder::setName(&place, "one of many");
    }
    for (const char& place : many) {
        NSLockOrder::didUnlock(&place);
        NSLockOrder::forget(&place);
    }
    takeInOrder({a, b});
}

TEST(NSRecursiveLockTest, IsCheckedInDebugBuildsOnly) {
    NSRecursiveLock first;
    NSRecursiveLock second;
    first.setName("outer");
    first.isTakenBefore(second);
    const auto reverse = [&] {
        second.lock();
        first.lock();
        first.unlock();
        second.unlock();
    };
    if (NSLockOrder::isChecked) {
        EXPECT_DEATH(reverse(), "outer");
    } else {
        reverse();
    }
}

TEST(NSRecursiveLockTest, ATryMayBeInAnyOrder) {
    NSRecursiveLock first;
    NSRecursiveLock second;
    first.isTakenBefore(second);
    second.lock();
    ASSERT_TRUE(first.tryLock());
    first.unlock();
    second.unlock();
}

}  // namespace
