#include "media/MediaTime.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "TimeMatching.h"

using tqplatform::added;
using tqplatform::isNumeric;
using tqplatform::multiplied;

TEST(MediaTime, IsNumericWhenValidAndFinite) {
    EXPECT_TRUE(isNumeric(CMTimeMake(0, 1)));
    EXPECT_FALSE(isNumeric(kCMTimeInvalid));
    EXPECT_FALSE(isNumeric(kCMTimePositiveInfinity));
    EXPECT_FALSE(isNumeric(kCMTimeNegativeInfinity));
    EXPECT_FALSE(isNumeric(kCMTimeIndefinite));
    EXPECT_FALSE(isNumeric(CMTime{1, 0, kCMTimeFlags_Valid, 0}));
}

TEST(MediaTime, MultipliesTheValue) {
    EXPECT_TRUE(isTime(multiplied(CMTimeMake(3, 44100), 1024), 3072, 44100));
    EXPECT_TRUE(isTime(multiplied(CMTimeMake(3, 44100), 0), 0, 44100));
    EXPECT_TRUE(isTime(multiplied(kCMTimeInvalid, 5), kCMTimeInvalid));
    EXPECT_TRUE(isTime(multiplied(kCMTimePositiveInfinity, 5), kCMTimePositiveInfinity));
}

TEST(MediaTime, BecomesInfiniteBeyond64Bits) {
    EXPECT_TRUE(isTime(multiplied(CMTimeMake(INT64_MAX, 1), 2), kCMTimePositiveInfinity));
    EXPECT_TRUE(isTime(multiplied(CMTimeMake(INT64_MIN, 1), 2), kCMTimeNegativeInfinity));
    EXPECT_TRUE(isTime(added(CMTimeMake(INT64_MAX, 1), CMTimeMake(1, 1)), kCMTimePositiveInfinity));
    EXPECT_TRUE(
        isTime(added(CMTimeMake(INT64_MIN, 1), CMTimeMake(-1, 1)), kCMTimeNegativeInfinity));
}

TEST(MediaTime, AddsInACommonTimescale) {
    EXPECT_TRUE(isTime(added(CMTimeMake(1, 44100), CMTimeMake(2, 44100)), 3, 44100));
    EXPECT_TRUE(isTime(added(CMTimeMake(1, 2), CMTimeMake(1, 3)), 5, 6));
    EXPECT_TRUE(isTime(added(CMTimeMake(-1, 4), CMTimeMake(1, 2)), 1, 4));
}

TEST(MediaTime, RoundsWhenNoCommonTimescaleFits) {
    // Two primes whose product exceeds 32 bits.
    const CMTime sum = added(CMTimeMake(1, 2147483647), CMTimeMake(1, 2147483629));
    EXPECT_TRUE(isTime(sum, 2, 2147483647, kCMTimeFlags_Valid | kCMTimeFlags_HasBeenRounded));
    const CMTime negative = added(CMTimeMake(-1, 2147483647), CMTimeMake(-1, 2147483629));
    EXPECT_TRUE(isTime(negative, -2, 2147483647, kCMTimeFlags_Valid | kCMTimeFlags_HasBeenRounded));
}

TEST(MediaTime, KeepsTheEpochAndTheRoundingOfWhatItAdds) {
    const CMTime rounded = {4, 8, kCMTimeFlags_Valid | kCMTimeFlags_HasBeenRounded, 3};
    EXPECT_TRUE(isTime(added(rounded, CMTimeMake(1, 8)), 5, 8,
                       kCMTimeFlags_Valid | kCMTimeFlags_HasBeenRounded, 3));
}

TEST(MediaTime, AddsWhatIsNotNumericAsExpected) {
    const CMTime one = CMTimeMake(1, 1);
    EXPECT_TRUE(isTime(added(kCMTimeInvalid, one), kCMTimeInvalid));
    EXPECT_TRUE(isTime(added(one, kCMTimeInvalid), kCMTimeInvalid));
    EXPECT_TRUE(isTime(added(kCMTimePositiveInfinity, one), kCMTimePositiveInfinity));
    EXPECT_TRUE(isTime(added(one, kCMTimeNegativeInfinity), kCMTimeNegativeInfinity));
    EXPECT_TRUE(isTime(added(kCMTimePositiveInfinity, kCMTimeNegativeInfinity), kCMTimeInvalid));
    EXPECT_TRUE(isTime(added(kCMTimeIndefinite, one), kCMTimeIndefinite));
    EXPECT_TRUE(isTime(added(CMTime{1, 0, kCMTimeFlags_Valid, 0}, one), kCMTimeInvalid));
}
