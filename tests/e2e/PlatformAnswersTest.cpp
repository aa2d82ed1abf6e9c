#include <gtest/gtest.h>

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

}  // namespace
