#include <gtest/gtest.h>

#include "HostRuns.h"

// The device plays the same with the library in the process as without it.

namespace {

using hostruns::With;

TEST(HostPlaysOn, OnTheOrdinaryRoad) {
    hostruns::expectTheHostPlaysOn("one_unit");
}

TEST(HostPlaysOn, AndWhatItPlaysIsRecorded) {
    const auto run = hostruns::run("one_unit", With::Recording);
    ASSERT_EQ(run.recorded.count(1), 1U) << run.events;
    EXPECT_TRUE(hostruns::holds(run.recorded.at(1), run.played, 4800, 480 * 20));
}

}  // namespace
