#include "platform/cubeb/PlayClock.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using tqcubeb::PlayClock;

constexpr std::uint64_t kMillisecond = 1'000'000;
constexpr std::uint64_t kBegin = 1'000 * kMillisecond;

TEST(PlayClock, RequestsThatComeInBurstsAreHeardEvenly) {
    PlayClock clock(48000);
    std::uint64_t last = clock.next(kBegin, 480);
    EXPECT_EQ(last, kBegin);
    for (std::uint64_t block = 1; block < 1000; ++block) {
        // Four at a time, every 40 ms.
        const std::uint64_t now = clock.next(kBegin + block / 4 * 40 * kMillisecond, 480);
        EXPECT_NEAR(static_cast<double>(now - last), 10.0 * kMillisecond, 0.9 * kMillisecond);
        last = now;
    }
    EXPECT_NEAR(static_cast<double>(last - kBegin), 9990.0 * kMillisecond, 30.0 * kMillisecond);
}

TEST(PlayClock, ADeviceThatStoodStillIsTakenAnew) {
    PlayClock clock(48000);
    clock.next(kBegin, 480);
    EXPECT_EQ(clock.next(kBegin + 5'000 * kMillisecond, 480), kBegin + 5'000 * kMillisecond);
}

TEST(PlayClock, TimeNeverGoesBack) {
    PlayClock clock(48000);
    clock.next(kBegin, 480);
    EXPECT_EQ(clock.next(kBegin - 500 * kMillisecond, 480), kBegin + 10 * kMillisecond);
}

}  // namespace
