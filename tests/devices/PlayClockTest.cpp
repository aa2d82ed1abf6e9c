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
        // Four at a time, every 40 ms; the last of them says what is true.
        const std::uint64_t now = clock.next(kBegin + block / 4 * 40 * kMillisecond, 480);
        if (block >= 4) {
            EXPECT_NEAR(static_cast<double>(now - last), 10.0 * kMillisecond, 0.3 * kMillisecond);
        }
        last = now;
    }
    EXPECT_NEAR(static_cast<double>(last - kBegin), 9960.0 * kMillisecond, 1.0 * kMillisecond);
}

TEST(PlayClock, WhatIsAskedForAheadAtTheStartIsNotHeardLaterForIt) {
    PlayClock clock(48000);
    for (int block = 0; block < 8; ++block) {
        clock.next(kBegin, 480);
    }
    EXPECT_NEAR(static_cast<double>(clock.next(kBegin + 10 * kMillisecond, 480) - kBegin),
                10.0 * kMillisecond, 0.1 * kMillisecond);
}

TEST(PlayClock, AClockThatDriftsIsFollowed) {
    for (const double fast : {1.001, 0.999}) {
        PlayClock clock(48000);
        std::uint64_t last = 0;
        const auto said = [&](int block) {
            // Every fifth is in time, the others are up to 8 ms late.
            return kBegin + static_cast<std::uint64_t>(block * 10.0 * kMillisecond / fast) +
                   static_cast<std::uint64_t>(block % 5) * 2 * kMillisecond;
        };
        for (int block = 0; block <= 20000; ++block) {
            last = clock.next(said(block), 480);
        }
        EXPECT_NEAR(static_cast<double>(last), static_cast<double>(said(20000)),
                    7.0 * kMillisecond);
    }
}

TEST(PlayClock, ADeviceThatStoodStillIsTakenAnew) {
    PlayClock clock(48000);
    clock.next(kBegin, 480);
    EXPECT_EQ(clock.next(kBegin + 5'000 * kMillisecond, 480), kBegin + 5'000 * kMillisecond);
}

TEST(PlayClock, TimeNeverGoesBack) {
    PlayClock clock(48000);
    clock.next(kBegin, 480);
    EXPECT_EQ(clock.next(kBegin - 500 * kMillisecond, 480), kBegin);
}

}  // namespace
