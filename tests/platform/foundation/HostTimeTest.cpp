#include <gtest/gtest.h>
#include <mach/mach_time.h>
#include <time.h>

static_assert(sizeof(mach_timebase_info_data_t) == 8);
static_assert(offsetof(mach_timebase_info_data_t, numer) == 0);
static_assert(offsetof(mach_timebase_info_data_t, denom) == 4);

TEST(HostTime, CountsTheNanosecondsOfTheMonotonicClock) {
    const auto clock = [] {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000U +
               static_cast<uint64_t>(now.tv_nsec);
    };
    const uint64_t before = clock();
    const uint64_t time = mach_absolute_time();
    const uint64_t after = clock();
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
}

TEST(HostTime, NeverRunsBackwards) {
    uint64_t last = mach_absolute_time();
    for (int round = 0; round < 10'000; ++round) {
        const uint64_t now = mach_absolute_time();
        ASSERT_LE(last, now);
        last = now;
    }
}

TEST(HostTime, OneTickIsOneNanosecond) {
    mach_timebase_info_data_t info = {0, 0};
    EXPECT_EQ(mach_timebase_info(&info), KERN_SUCCESS);
    EXPECT_EQ(info.numer, 1U);
    EXPECT_EQ(info.denom, 1U);
}

TEST(HostTime, RefusesANullPointer) {
    EXPECT_EQ(mach_timebase_info(nullptr), KERN_INVALID_ARGUMENT);
}
