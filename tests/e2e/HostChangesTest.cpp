#include <gtest/gtest.h>

#include "HostRuns.h"

// What changes while a host plays leaves what the device plays alone, and the recording follows.

namespace {

using hostruns::With;

TEST(HostPlaysOn, AcrossChangesOfItsFormat) {
    hostruns::expectTheHostPlaysOn("format_changes");
}

TEST(HostPlaysOn, AndIsRecordedAfterChangesOfItsFormat) {
    const auto run = hostruns::run("format_changes", With::Recording);
    ASSERT_EQ(run.recorded.count(1), 1U) << run.events;
    EXPECT_TRUE(
        hostruns::holds(run.recorded.at(1), run.played, run.played.size() - 480 * 35, 480 * 30));
    EXPECT_EQ(run.events.find("2 109"), std::string::npos) << run.events;
    EXPECT_EQ(run.events.find("3 109"), std::string::npos) << run.events;
}

TEST(HostPlaysOn, AcrossRouteChangesAndInterruptions) {
    hostruns::expectTheHostPlaysOn("route_change");
}

TEST(HostPlaysOn, AndNothingIsMissedAfterRouteChanges) {
    const auto run = hostruns::run("route_change", With::Recording);
    EXPECT_EQ(run.events.find("2 109"), std::string::npos) << run.events;
    EXPECT_EQ(run.events.find("3 109"), std::string::npos) << run.events;
    ASSERT_EQ(run.recorded.count(1), 1U) << run.events;
    EXPECT_GT(run.recorded.at(1).size(), 480U * 45);
}

}  // namespace
