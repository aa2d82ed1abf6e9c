#include <gtest/gtest.h>

#include "HostRuns.h"

// Whatever a host does, the device plays the same with the library in the process, and every call
// answers the same.

namespace {

using hostruns::With;

void expectTheSame(int seed, const std::string& about, With with) {
    const std::map<std::string, std::string> walk{{"TQ_TEST_SEED", std::to_string(seed)},
                                                  {"TQ_TEST_WALK", about}};
    const auto plain = hostruns::run("random_walk", With::Nothing, walk);
    const auto captured = hostruns::run("random_walk", with, walk);
    hostruns::expectSamePlayed(plain, captured, "seed " + std::to_string(seed));
    EXPECT_EQ(plain.end["answers"], captured.end["answers"]) << "seed " << seed;
}

struct RandomWalk : testing::TestWithParam<int> {
    static void expectTheSame(With with) { ::expectTheSame(GetParam(), "all", with); }
};

TEST_P(RandomWalk, PlaysTheSameWithTheHooks) {
    expectTheSame(With::Hooks);
}

TEST_P(RandomWalk, PlaysTheSameWhileItIsRecorded) {
    expectTheSame(With::Recording);
}

TEST_P(RandomWalk, PlaysTheSameWhenTheLibraryIsOpenedLate) {
    expectTheSame(With::RecordingLate);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomWalk,
                         testing::Values(1, 2, 3, 4, 5, 6, 7, 8, 14, 23, 32, 36, 46, 88, 127, 134));

struct RandomWalkOfGraphs : testing::TestWithParam<int> {
    static void expectTheSame(With with) { ::expectTheSame(GetParam(), "graphs", with); }
};

TEST_P(RandomWalkOfGraphs, PlaysTheSameWithTheHooks) {
    expectTheSame(With::Hooks);
}

TEST_P(RandomWalkOfGraphs, PlaysTheSameWhileItIsRecorded) {
    expectTheSame(With::Recording);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomWalkOfGraphs,
                         testing::Values(1, 2, 3, 4, 5, 6, 41, 84, 119, 126, 136));

}  // namespace
