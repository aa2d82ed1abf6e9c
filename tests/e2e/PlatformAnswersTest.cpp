#include <gtest/gtest.h>

#include <algorithm>

#include "HostRuns.h"

// Hosts that depend on what the platform answers, to them or to the capture of their sound.

namespace {

using hostruns::With;

TEST(PlatformAnswers, ANumberGivenTwiceDoesNotPoisonLaterStarts) {
    hostruns::expectTheHostPlaysOn("numbers_given_twice");
    const auto run = hostruns::run("numbers_given_twice", With::Recording);
    EXPECT_EQ(run.events.find("-10861"), std::string::npos) << run.events;
    EXPECT_EQ(run.events.find("0 102"), std::string::npos) << run.events;
    ASSERT_EQ(run.recorded.count(2), 1U) << run.events;
    // The second unit plays alone from frame 5760 on.
    EXPECT_TRUE(hostruns::holds(run.recorded.at(2), run.played, 5760 + 960, 480 * 15));
}

TEST(PlatformAnswers, APreferredRateIsTheDevices) {
    hostruns::expectTheHostPlaysOn("preferred_rate");
}

TEST(PlatformAnswers, UnsignedSoundIsPlayedAndIsInTheMix) {
    hostruns::expectTheHostPlaysOn("unsigned_sound");
    const auto run = hostruns::run("unsigned_sound", With::Recording);
    // Noise of a quarter of the scale around zero: nothing in the mix lies further out, which
    // cleared bits would, and it does not lie still.
    const auto& mix = run.recorded.at(0);
    ASSERT_FALSE(mix.empty()) << run.events;
    const auto [lowest, highest] = std::minmax_element(mix.begin(), mix.end());
    EXPECT_GT(*lowest, -16384);
    EXPECT_LT(*lowest, -4096);
    EXPECT_LT(*highest, 16384);
    EXPECT_GT(*highest, 4096);
}

}  // namespace
