#include "wav_listener/MixReport.h"

#include <gtest/gtest.h>

#include <vector>

namespace demo {
namespace {

TEST(LevelMeter, TellsPeakAndRmsAgainstFullScale) {
    LevelMeter meter;
    meter.add(std::vector<std::int16_t>{16384, -16384, 16384, -16384});
    EXPECT_DOUBLE_EQ(meter.peak(), 0.5);
    EXPECT_DOUBLE_EQ(meter.rms(), 0.5);
    EXPECT_NEAR(toDecibels(meter.rms()), -6.02, 0.01);
    meter.add(std::vector<std::int16_t>{-32768});
    EXPECT_DOUBLE_EQ(meter.peak(), 1);
}

TEST(LevelMeter, NothingIsSilence) {
    const LevelMeter meter;
    EXPECT_EQ(meter.peak(), 0);
    EXPECT_EQ(meter.rms(), 0);
}

TEST(DropoutMeter, BlocksThatFollowEachOtherHaveNoGap) {
    DropoutMeter meter;
    for (std::uint64_t block = 0; block < 100; ++block) {
        // Stamps are whole microseconds and wander a little around the true time.
        meter.add(1000000 + block * 23220 + (block % 3) * 900, 23219.95, false);
    }
    EXPECT_EQ(meter.blocks(), 100U);
    EXPECT_EQ(meter.gaps(), 0U);
    EXPECT_EQ(meter.backwardSteps(), 0U);
}

TEST(DropoutMeter, CountsAMissingBlock) {
    DropoutMeter meter;
    for (std::uint64_t block = 0; block < 10; ++block) {
        if (block != 5) {
            meter.add(block * 20000, 20000, false);
        }
    }
    EXPECT_EQ(meter.gaps(), 1U);
    EXPECT_NEAR(meter.gapMicroseconds(), 20000, 1);
    EXPECT_EQ(meter.backwardSteps(), 0U);
}

TEST(DropoutMeter, CountsStampsThatFallBack) {
    DropoutMeter meter;
    meter.add(100000, 20000, false);
    meter.add(100000, 20000, false);
    EXPECT_EQ(meter.backwardSteps(), 1U);
    EXPECT_EQ(meter.gaps(), 0U);
}

TEST(DropoutMeter, CountsZeroBlocksOnlyBetweenSound) {
    DropoutMeter meter;
    std::uint64_t time = 0;
    for (const bool isZero : {true, true, false, true, false, true, true, false, true, true}) {
        meter.add(time += 1000, 1000, isZero);
    }
    EXPECT_EQ(meter.zeroBlocks(), 3U);
}

}  // namespace
}  // namespace demo
