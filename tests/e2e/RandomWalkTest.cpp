#include <gtest/gtest.h>

#include "HostRuns.h"

// Whatever a host does, the device plays the same with the library in the process, and every call
// answers the same.

namespace {

using hostruns::With;

struct RandomWalk : testing::TestWithParam<int> {
    void expectTheSame(With with) const {
        const std::map<std::string, std::string> seed{{"TQ_TEST_SEED", std::to_string(GetParam())}};
        const auto plain = hostruns::run("random_walk", With::Nothing, seed);
        const auto captured = hostruns::run("random_walk", with, seed);
        hostruns::expectSamePlayed(plain, captured, "seed " + std::to_string(GetParam()));
        EXPECT_EQ(plain.end["answers"], captured.end["answers"]) << "seed " << GetParam();
    }
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

}  // namespace
