#include "spin_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace korva_audio_utils {
namespace {

TEST(SpinLockTest, NewLockIsFree) {
    SpinLock lock;
    lock.lock();
    lock.unlock();
    lock.lock();
    lock.unlock();
}

TEST(SpinLockTest, HeldLockKeepsAnotherThreadOutUntilItIsReleased) {
    SpinLock lock;
    std::atomic<bool> trying{false};
    std::atomic<bool> inside{false};
    bool released = false;
    bool sawRelease = false;
    lock.lock();
    std::thread other([&] {
        trying = true;
        lock.lock();
        inside = true;
        sawRelease = released;
        lock.unlock();
    });
    while (!trying.load()) {
        std::this_thread::yield();
    }
    for (int k = 0; k < 1000; ++k) {
        EXPECT_FALSE(inside.load());
        std::this_thread::yield();
    }
    released = true;
    lock.unlock();
    other.join();
    EXPECT_TRUE(sawRelease);
}

TEST(SpinLockTest, CountsOfManyThreadsAddUpUnderTheLock) {
    constexpr std::uint64_t kRounds = 5000;
    SpinLock lock;
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; ++k) {
        threads.emplace_back([&] {
            for (std::uint64_t round = 0; round < kRounds; ++round) {
                const std::lock_guard guard(lock);
                torn += first == second ? 0 : 1;
                ++first;
                ++second;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(first, 4 * kRounds);
    EXPECT_EQ(torn.load(), 0);
}

}  // namespace
}  // namespace korva_audio_utils
