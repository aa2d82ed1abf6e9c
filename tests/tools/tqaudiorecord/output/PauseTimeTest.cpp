// Pauses are taken out of a recording's time, and of what was lost.

#include "output/PauseTime.h"

#include <gtest/gtest.h>

namespace tqrecorder::test {
namespace {

constexpr std::uint64_t kSecond = 1'000'000;

class PauseTimeTest : public testing::Test {
  protected:
    PauseTimeTest() {
        pauses_.pause(10 * kSecond);
        pauses_.resume(12 * kSecond);
    }
    PauseTime pauses_;
};

TEST_F(PauseTimeTest, WhatIsBehindAPauseMovesByItsLength) {
    EXPECT_EQ(pauses_.before(9 * kSecond), 0U);
    EXPECT_EQ(pauses_.before(11 * kSecond), kSecond);
    EXPECT_EQ(pauses_.before(20 * kSecond), 2 * kSecond);
    EXPECT_TRUE(pauses_.isWithin(10 * kSecond));
    EXPECT_FALSE(pauses_.isWithin(12 * kSecond));
}

TEST_F(PauseTimeTest, WhatWasLostOutsideAPauseIsAllMissing) {
    EXPECT_EQ(pauses_.lostOutside(10 * kSecond, 48'000, 48'000), 48'000U);
    EXPECT_EQ(pauses_.lostOutside(14 * kSecond, 48'000, 48'000), 48'000U);
    EXPECT_EQ(pauses_.lostOutside(14 * kSecond, 0, 48'000), 0U);
}

TEST_F(PauseTimeTest, OfWhatWasLostOverAPauseOnlyTheRestIsMissing) {
    // From half a second before the pause to one behind it.
    EXPECT_EQ(pauses_.lostOutside(13 * kSecond, 7 * 24'000, 48'000), 3U * 24'000);
    // Up to its middle.
    EXPECT_EQ(pauses_.lostOutside(11 * kSecond, 2 * 48'000, 48'000), 48'000U);
}

TEST_F(PauseTimeTest, WhatWasLostWithinAPauseIsNotMissing) {
    EXPECT_EQ(pauses_.lostOutside(12 * kSecond, 48'000, 48'000), 0U);
    EXPECT_EQ(pauses_.lostOutside(11 * kSecond, 24'000, 48'000), 0U);
}

TEST_F(PauseTimeTest, MoreLostThanThereWasTimeReachesBackToTheBeginning) {
    EXPECT_EQ(pauses_.lostOutside(11 * kSecond, 100 * 48'000, 48'000), 10U * 48'000);
}

}  // namespace
}  // namespace tqrecorder::test
