#include "event_filter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <thread>
#include <vector>

namespace korva_audio_utils {
namespace {

std::atomic<long> g_now{0};
std::atomic<int> g_looks{0};

long FakeNow() {
    // Relaxed, so that the clock orders nothing between threads that the filter does not.
    g_looks.fetch_add(1, std::memory_order_relaxed);
    return g_now.load(std::memory_order_relaxed);
}

class EventFilterTest : public testing::Test {
  protected:
    EventFilterTest() {
        g_now = 0;
        g_looks = 0;
    }
    bool At(long milliseconds, int category = 2, int code = 111) {
        g_now = milliseconds;
        return filter_.FilterEvent(category, code);
    }

    EventFilter filter_{&FakeNow};
};

TEST_F(EventFilterTest, KeyIsCodeOrCategoryShiftedBySixteen) {
    EXPECT_EQ(EventFilter::GetKey(0, 0), 0);
    EXPECT_EQ(EventFilter::GetKey(2, 109), 131181);
    EXPECT_EQ(EventFilter::GetKey(1, 0x10000), 0x10000);
    EXPECT_EQ(EventFilter::GetKey(0x8000, 1), std::numeric_limits<int>::min() + 1);
    EXPECT_EQ(EventFilter::GetKey(-1, 0), -65536);
    EXPECT_EQ(EventFilter::GetKey(7, -1), -1);
}

TEST_F(EventFilterTest, NowIsWallClockMilliseconds) {
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    using std::chrono::system_clock;
    const auto wall = [] {
        return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    };
    const long before = wall();
    const long now = EventFilter::GetNow();
    EXPECT_LE(before, now);
    EXPECT_LE(now, wall());
}

TEST_F(EventFilterTest, FirstOccurrencePassesAtAnyTime) {
    filter_.SetInterval(2000);
    EXPECT_TRUE(At(0));
    EXPECT_TRUE(At(0, 3));
    EXPECT_TRUE(At(-5000, 4));
}

TEST_F(EventFilterTest, RepeatPassesOnlyWhenMoreThanTheIntervalHasGone) {
    filter_.SetInterval(2000);
    EXPECT_TRUE(At(0));
    EXPECT_FALSE(At(1500));
    EXPECT_FALSE(At(2000));
    EXPECT_TRUE(At(2001));
    EXPECT_FALSE(At(4001));
    EXPECT_TRUE(At(4002));
}

TEST_F(EventFilterTest, SuppressedAttemptsDoNotExtendTheSuppression) {
    filter_.SetInterval(2000);
    for (long time = 0; time <= 12000; time += 1000) {
        EXPECT_EQ(At(time), time % 3000 == 0) << time;
    }
}

TEST_F(EventFilterTest, CodesAndCategoriesAreFilteredIndependently) {
    filter_.SetInterval(2000);
    EXPECT_TRUE(At(0, 2, 109));
    EXPECT_TRUE(At(1, 2, 111));
    EXPECT_TRUE(At(2, 3, 109));
    EXPECT_FALSE(At(3, 2, 109));
    EXPECT_FALSE(At(3, 2, 111));
    EXPECT_FALSE(At(3, 3, 109));
    EXPECT_TRUE(At(2001, 2, 109));
    EXPECT_FALSE(At(2001, 2, 111));
}

TEST_F(EventFilterTest, IntervalZeroSuppressesOnlyRepeatsWithinOneMillisecond) {
    EXPECT_EQ(filter_.Interval(), 0);
    EXPECT_TRUE(At(10));
    EXPECT_FALSE(At(10));
    EXPECT_TRUE(At(11));
}

TEST_F(EventFilterTest, IntervalIsSigned64BitMilliseconds) {
    filter_.SetInterval(std::numeric_limits<long>::max());
    EXPECT_EQ(filter_.Interval(), std::numeric_limits<long>::max());
    EXPECT_TRUE(At(0));
    EXPECT_FALSE(At(1L << 40));
}

TEST_F(EventFilterTest, AClockThatStepsBackSuppressesUntilItHasCaughtUp) {
    filter_.SetInterval(2000);
    EXPECT_TRUE(At(10000));
    EXPECT_FALSE(At(5000));
    EXPECT_FALSE(At(12000));
    EXPECT_TRUE(At(12001));
}

TEST_F(EventFilterTest, DefaultClockIsTheWallClock) {
    EventFilter filter;
    filter.SetInterval(3600000);
    EXPECT_TRUE(filter.FilterEvent(1, 1));
    EXPECT_FALSE(filter.FilterEvent(1, 1));
    EXPECT_EQ(g_looks.load(), 0);
}

TEST_F(EventFilterTest, OfManyThreadsExactlyOnePassesPerKeyAndInterval) {
    constexpr int kKeys = 50;
    filter_.SetInterval(1000);
    std::array<int, kKeys> passed{};
    for (long time : {0L, 1001L, 2002L}) {
        g_now = time;
        std::array<std::array<int, kKeys>, 4> passedOf{};
        std::vector<std::thread> threads;
        for (auto& counts : passedOf) {
            threads.emplace_back([&] {
                for (int round = 0; round < 20; ++round) {
                    for (int key = 0; key < kKeys; ++key) {
                        counts[static_cast<std::size_t>(key)] +=
                            filter_.FilterEvent(key % 7, key) ? 1 : 0;
                    }
                    filter_.SetInterval(1000);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (const auto& counts : passedOf) {
            std::transform(counts.begin(), counts.end(), passed.begin(), passed.begin(),
                           std::plus<>());
        }
    }
    EXPECT_THAT(passed, testing::Each(3));
}

}  // namespace
}  // namespace korva_audio_utils
