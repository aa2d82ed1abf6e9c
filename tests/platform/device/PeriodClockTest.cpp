#include "device/PeriodClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

namespace {

using tqplatform::PeriodClock;

constexpr std::uint64_t kStart = 123'456'789'012;
constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::uint64_t kPeriod = 512 * kSecond / 48000;  // rounded down

TEST(PeriodClock, FirstPeriodIsDueAtOnceAndHeardOnePeriodLater) {
    PeriodClock clock(48000, 512);
    clock.start(kStart);
    EXPECT_EQ(clock.deadlineNs(), kStart);
    EXPECT_EQ(clock.playTimeNs(), kStart + kPeriod);
}

TEST(PeriodClock, DeadlinesStayExactForADay) {
    PeriodClock clock(48000, 512);
    clock.start(kStart);
    constexpr std::uint64_t kPeriods = 24 * 3600 * std::uint64_t{48000} / 512;
    for (std::uint64_t period = 0; period < kPeriods; ++period) {
        ASSERT_EQ(clock.deadlineNs(),
                  kStart + period * 512 * 10000 / 48 * 100 + period * 512 * 10000 % 48 * 100 / 48);
        clock.advance(clock.deadlineNs());
    }
    EXPECT_EQ(clock.deadlineNs(), kStart + 24 * 3600 * kSecond);
}

TEST(PeriodClock, HoldsAtRatesThatDivideNothing) {
    PeriodClock clock(44100, 441 * 7 + 1);
    clock.start(0);
    for (std::uint64_t period = 0; period < 44100; ++period) {
        clock.advance(clock.deadlineNs());
    }
    EXPECT_EQ(clock.deadlineNs(), (441 * 7 + 1) * kSecond);
}

TEST(PeriodClock, PlayTimeIsTheNextDeadline) {
    PeriodClock clock(48000, 512);
    clock.start(kStart);
    for (int period = 0; period < 1000; ++period) {
        const std::uint64_t heard = clock.playTimeNs();
        clock.advance(clock.deadlineNs());
        ASSERT_EQ(clock.deadlineNs(), heard);
    }
}

TEST(PeriodClock, AShortStallIsMadeUpFor) {
    PeriodClock clock(48000, 512);
    clock.start(kStart);
    const std::uint64_t late = kStart + kPeriod + PeriodClock::kMaximumLatenessNs;
    clock.advance(late);
    EXPECT_EQ(clock.deadlineNs(), kStart + kPeriod);
}

TEST(PeriodClock, ALongStallSkipsThePeriodsThatWereMissed) {
    PeriodClock clock(48000, 512);
    clock.start(kStart);
    const std::uint64_t late = kStart + 10 * kSecond;
    const std::uint64_t heard = clock.playTimeNs();
    clock.advance(late);
    EXPECT_LE(clock.deadlineNs(), late);
    EXPECT_GT(clock.deadlineNs() + kPeriod + 1, late);
    EXPECT_GT(clock.playTimeNs(), heard);
    // Paced as before from there on.
    const std::uint64_t resumed = clock.deadlineNs();
    for (int period = 0; period < 3; ++period) {
        clock.advance(clock.deadlineNs());
    }
    EXPECT_EQ(clock.deadlineNs(), resumed + 3 * 512 * kSecond / 48000);
}

TEST(PeriodClock, PlayTimesRiseWhateverTheStalls) {
    PeriodClock clock(48000, 512);
    clock.start(kStart);
    std::uint64_t now = kStart, before = 0;
    for (std::uint64_t step = 0; step < 5000; ++step) {
        ASSERT_GT(clock.playTimeNs(), before);
        before = clock.playTimeNs();
        now = std::max(now, clock.deadlineNs()) + step * step * 7919 % 400'000'000;
        clock.advance(now);
    }
}

}  // namespace
