// Where silence goes in a stream whose time stamps have holes and drift.

#include "output/StreamClock.h"

#include <gtest/gtest.h>

#include <vector>

namespace tqrecorder::test {
namespace {

TEST(StreamClockTest, FollowsAnHourOfDriftWithoutAHole) {
    StreamClock clock(44100, 0, kMixPatience);
    for (std::uint64_t block = 0; block < 360'000; ++block) {
        ASSERT_EQ(
            clock.before(static_cast<std::uint64_t>(static_cast<double>(block) * 10'001.0), 441, 0),
            0U);
    }
}

TEST(StreamClockTest, HolesThatCameAsSilenceCountAndAreNotFilledAgain) {
    StreamClock clock(44100, 0, kMixPatience);
    const std::vector<std::byte> bytes(441 * 4);
    Block block{0, {}, {44100, 2, 16, false}, 0, bytes};
    EXPECT_EQ(clock.before(block), 0U);
    block.microseconds = 10'000;
    block.filledFrames = 22'050;
    EXPECT_EQ(clock.before(block), 0U);
    block.microseconds = 20'000;
    block.filledFrames = 0;
    EXPECT_EQ(clock.before(block), 0U);
    EXPECT_EQ(clock.gaps(), 1U);
    EXPECT_EQ(clock.gapSeconds(), 0.5);
}

TEST(StreamClockTest, StampsThatBeginAnewFillNothing) {
    StreamClock clock(44100, 1'000'000'000'000'000, kMixPatience);
    EXPECT_EQ(clock.before(1'000'000'000'000'000, 441, 0), 0U);
    EXPECT_EQ(clock.before(5, 441, 0), 0U);
    EXPECT_EQ(clock.before(UINT64_MAX, 441, 0), 0U);
    EXPECT_EQ(clock.before(0, 441, 0), 0U);
    EXPECT_EQ(clock.gaps(), 0U);
}

TEST(StreamClockTest, ABurstAfterAStallAddsNoTimeInTheEnd) {
    StreamClock clock(44100, 0, kTrackPatience);
    std::uint64_t frames = 0;
    for (std::uint64_t block = 0; block < 100; ++block) {
        // Blocks 40 to 79 all come at the end of a stall of 0.4 s.
        const std::uint64_t stamp = block >= 40 && block < 80 ? 800'000 : block * 10'000;
        frames += clock.before(stamp, 441, 0) + 441;
    }
    frames += clock.before(3'000'000, 441, 0) + 441;
    EXPECT_NEAR(static_cast<double>(frames), 3.01 * 44100, 0.01 * 44100);
}

/// Frames until the end of a minute in which blocks of 10 ms come on time, but for one stall.
std::uint64_t framesAround(double stallSeconds, const Patience& patience) {
    StreamClock clock(44100, 0, patience);
    std::uint64_t frames = 0;
    for (std::uint64_t block = 0; block < 6000; ++block) {
        const double late = block < 3000 ? 0 : stallSeconds;
        const double stamp = static_cast<double>(block) * 10'000 + late * 1e6;
        frames += clock.before(static_cast<std::uint64_t>(stamp), 441, 0) + 441;
    }
    return frames;
}

TEST(StreamClockTest, AStallOfAnEvenStreamIsFilledInItsTrackAsInTheMix) {
    for (const double stall : {0.03, 0.06, 0.1, 0.2, 0.24}) {
        EXPECT_EQ(framesAround(stall, kTrackPatience), framesAround(stall, kMixPatience)) << stall;
    }
    EXPECT_EQ(framesAround(0.1, kTrackPatience), 60U * 44100 + 4410);
}

TEST(StreamClockTest, BlocksThatComeInBurstsAreFollowedByNoSilence) {
    StreamClock clock(44100, 0, kTrackPatience);
    for (std::uint64_t block = 0; block < 6000; ++block) {
        // Ten at a time, stamped with when they came.
        ASSERT_EQ(clock.before(block / 10 * 100'000, 441, 0), 0U) << block;
    }
}

TEST(StreamClockTest, EveryLostFrameIsSilenceWhateverTheStampsSay) {
    // Stamps that are up to 20 ms late, and a loss of half a block in every third.
    StreamClock clock(44100, 0, kMixPatience);
    std::uint64_t place = 0;
    for (std::uint64_t block = 0; block < 3000; ++block) {
        const std::uint64_t lost = block > 0 && block % 3 == 0 ? 220 : 0;
        const auto stamp =
            static_cast<std::uint64_t>(static_cast<double>(place + lost) / 44100 * 1e6);
        ASSERT_EQ(clock.before(stamp + block * 7919 % 20'000, 441, lost), lost);
        place += lost + 441;
    }
    EXPECT_EQ(clock.frames(), place);
    EXPECT_EQ(clock.gaps(), 999U);
}

TEST(StreamClockTest, ALossBeforeTheFirstBlockAndOneBeyondAllTimeCountForNothing) {
    StreamClock clock(44100, 0, kMixPatience);
    EXPECT_EQ(clock.before(0, 441, 44100), 0U);
    EXPECT_EQ(clock.before(10'000, 441, UINT64_MAX), 0U);
    EXPECT_EQ(clock.before(20'000, 441, 441), 441U);
}

TEST(StreamClockTest, AHoleBehindALossIsFilledAsWell) {
    StreamClock clock(44100, 0, kMixPatience);
    EXPECT_EQ(clock.before(0, 441, 0), 0U);
    EXPECT_EQ(clock.before(1'020'000, 441, 441), 441U + 44100U);
    EXPECT_EQ(clock.gaps(), 1U);
}

TEST(StreamClockTest, SilenceIsNoLongerThanTheRecordingAndTheSlack) {
    constexpr std::uint64_t kHour = 3600'000'000;
    StreamClock clock(100, 0, kMixPatience, std::chrono::steady_clock::now(), 10);
    EXPECT_EQ(clock.before(0, 100, 0), 0U);
    EXPECT_EQ(clock.before(7'000'000, 100, 0), 600U);
    EXPECT_FALSE(clock.takeJump());
    // Six of ten seconds are used up.
    EXPECT_EQ(clock.before(14'000'000, 100, 0), 0U);
    EXPECT_TRUE(clock.takeJump());
    EXPECT_FALSE(clock.takeJump()) << "it is told once";
    // What was recorded for an hour may be silent for an hour.
    const auto anHourAgo = std::chrono::steady_clock::now() - std::chrono::hours{1};
    StreamClock old(100, 0, kMixPatience, anHourAgo, 10);
    EXPECT_EQ(old.before(kHour, 100, 0), 360'000U);
    EXPECT_FALSE(old.takeJump());
}

}  // namespace
}  // namespace tqrecorder::test
