#include <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

TEST(NSPointerArray, ReadsAnEntryWhoseObjectIsGoneAsNull) {
    NSPointerArray<int> array;
    auto object = std::make_shared<int>(7);
    array.addPointer(object);
    EXPECT_EQ(array.pointerAtIndex(0), object);
    object.reset();
    EXPECT_EQ(array.count(), 1U);
    EXPECT_EQ(array.pointerAtIndex(0), nullptr);
}

TEST(NSPointerArray, RemovesTheEntryAtAnIndex) {
    NSPointerArray<int> array;
    const auto first = std::make_shared<int>(1);
    const auto second = std::make_shared<int>(2);
    array.addPointer(first);
    array.addPointer(second);
    array.removePointerAtIndex(0);
    EXPECT_EQ(array.count(), 1U);
    EXPECT_EQ(array.pointerAtIndex(0), second);
}

TEST(NSPointerArray, IsIndifferentToIndicesBeyondTheEnd) {
    NSPointerArray<int> array;
    array.removePointerAtIndex(0);
    EXPECT_EQ(array.count(), 0U);
    EXPECT_EQ(array.pointerAtIndex(5), nullptr);
}

TEST(NSRecursiveLock, MayBeTakenAgainByItsOwner) {
    NSRecursiveLock lock;
    lock.lock();
    EXPECT_TRUE(lock.tryLock());
    lock.unlock();
    lock.unlock();
}

TEST(NSRecursiveLock, KeepsOtherThreadsOutUntilTheLastUnlock) {
    NSRecursiveLock lock;
    const auto freeForOthers = [&lock] {
        bool taken = false;
        std::thread([&] {
            taken = lock.tryLock();
            if (taken) {
                lock.unlock();
            }
        }).join();
        return taken;
    };
    lock.lock();
    lock.lock();
    lock.unlock();
    EXPECT_FALSE(freeForOthers());
    lock.unlock();
    EXPECT_TRUE(freeForOthers());
}
