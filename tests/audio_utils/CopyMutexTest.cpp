#include "copy_mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>
#include <vector>

namespace korva_audio_utils {
namespace {

using namespace std::chrono_literals;

TEST(CopyMutexTest, IsFreeAgainAfterEachKindOfHolder) {
    CopyMutex mutex;
    for (int round = 0; round < 3; ++round) {
        { const CopyMutex::ForCopy copying(mutex); }
        { const CopyMutex::ForLong holding(mutex); }
    }
}

/// Whether another thread that locks in this way gets in while the holder has the mutex, and that
/// it does once the holder has left.
template <class Holder, class Other>
void expectThatHolderKeepsOut() {
    CopyMutex mutex;
    std::optional<Holder> holder(std::in_place, mutex);
    std::atomic<bool> isTrying{false};
    std::atomic<bool> isInside{false};
    int written = 0;
    int seen = 0;
    std::thread other([&] {
        isTrying = true;
        const Other locked(mutex);
        isInside = true;
        seen = written;
    });
    while (!isTrying.load()) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(isInside.load());
    written = 1;
    holder.reset();
    other.join();
    EXPECT_TRUE(isInside.load());
    EXPECT_EQ(seen, 1);
}

TEST(CopyMutexTest, ACopyKeepsALongHolderOut) {
    expectThatHolderKeepsOut<CopyMutex::ForCopy, CopyMutex::ForLong>();
}

TEST(CopyMutexTest, ACopyKeepsAnotherCopyOut) {
    expectThatHolderKeepsOut<CopyMutex::ForCopy, CopyMutex::ForCopy>();
}

TEST(CopyMutexTest, ALongHolderKeepsACopyOut) {
    expectThatHolderKeepsOut<CopyMutex::ForLong, CopyMutex::ForCopy>();
}

TEST(CopyMutexTest, ALongHolderKeepsAnotherOut) {
    expectThatHolderKeepsOut<CopyMutex::ForLong, CopyMutex::ForLong>();
}

TEST(CopyMutexTest, CountsOfThreadsOfBothKindsAddUp) {
    constexpr std::uint64_t kRounds = 5000;
    CopyMutex mutex;
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    std::atomic<int> torn{0};
    const auto count = [&] {
        torn += first == second ? 0 : 1;
        ++first;
        ++second;
    };
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; ++k) {
        threads.emplace_back([&, k] {
            for (std::uint64_t round = 0; round < kRounds; ++round) {
                // One long holder beside copies, as a ring has them, and one that mixes both.
                if (k == 0 || (k == 1 && round % 7 == 0)) {
                    const CopyMutex::ForLong holding(mutex);
                    count();
                } else {
                    const CopyMutex::ForCopy copying(mutex);
                    count();
                }
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
