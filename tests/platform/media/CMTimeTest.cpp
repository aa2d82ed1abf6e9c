#include <CoreMedia/CoreMedia.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "TimeMatching.h"

static_assert(sizeof(CMTime) == 24 && alignof(CMTime) == 4);
static_assert(offsetof(CMTime, value) == 0 && offsetof(CMTime, timescale) == 8);
static_assert(offsetof(CMTime, flags) == 12 && offsetof(CMTime, epoch) == 16);
static_assert(sizeof(CMSampleTimingInfo) == 72);
static_assert(offsetof(CMSampleTimingInfo, duration) == 0);
static_assert(offsetof(CMSampleTimingInfo, presentationTimeStamp) == 24);
static_assert(offsetof(CMSampleTimingInfo, decodeTimeStamp) == 48);
static_assert(kCMTimeFlags_Valid == 1 && kCMTimeFlags_HasBeenRounded == 2);
static_assert(kCMTimeFlags_PositiveInfinity == 4 && kCMTimeFlags_NegativeInfinity == 8);
static_assert(kCMTimeFlags_Indefinite == 16 && kCMTimeFlags_ImpliedValueFlagsMask == 28);

TEST(CMTime, IsMadeValidInTheFirstEpoch) {
    EXPECT_TRUE(isTime(CMTimeMake(1, 44100), 1, 44100, kCMTimeFlags_Valid, 0));
    EXPECT_TRUE(isTime(CMTimeMake(INT64_MIN, INT32_MAX), INT64_MIN, INT32_MAX));
}

TEST(CMTime, IsInvalidWithoutAPositiveTimescale) {
    EXPECT_TRUE(isTime(CMTimeMake(5, 0), 0, 0, 0));
    EXPECT_TRUE(isTime(CMTimeMake(5, -1), 0, 0, 0));
    EXPECT_TRUE(isTime(CMTimeMake(5, INT32_MIN), 0, 0, 0));
}

TEST(CMTime, HasItsConstants) {
    EXPECT_TRUE(isTime(kCMTimeInvalid, 0, 0, 0));
    EXPECT_TRUE(isTime(kCMTimeZero, 0, 1, kCMTimeFlags_Valid));
    EXPECT_TRUE(isTime(kCMTimePositiveInfinity, 0, 0, 5));
    EXPECT_TRUE(isTime(kCMTimeNegativeInfinity, 0, 0, 9));
    EXPECT_TRUE(isTime(kCMTimeIndefinite, 0, 0, 17));
    EXPECT_TRUE(isTime(kCMTimingInfoInvalid.duration, kCMTimeInvalid));
    EXPECT_TRUE(isTime(kCMTimingInfoInvalid.presentationTimeStamp, kCMTimeInvalid));
    EXPECT_TRUE(isTime(kCMTimingInfoInvalid.decodeTimeStamp, kCMTimeInvalid));
}
