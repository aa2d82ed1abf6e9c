#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "FaultLaunches.h"
#include "support/LeakCheck.h"

// The guard of a program that plays natively: what runs in its calls, in its streams' units and in
// listeners of its streams is ours.

namespace {

class BridgeGuard : public FaultLaunches {
  protected:
    [[nodiscard]] tqtest::ProgramEnd play(const std::string& deadly,
                                          const std::string& device = "null",
                                          const std::string& what = "play") const {
        tqtest::ProgramSetup setup = hooked(what);
        setup.environment["TQ_AUDIO_DEVICE"] = device;
        setup.environment["LD_PRELOAD"] = std::string(TQ_FAULT_BRIDGE) + ":" + TQ_CAPTURE_LIBRARY;
        setup.environment["TQ_TEST_DEADLY"] = deadly;
        return tqtest::runProgram(setup);
    }
    static void expectPlayed(const tqtest::ProgramEnd& run, const std::string& hooks) {
        EXPECT_EQ(run.code, 0) << "signal " << run.signal << "\n" << run.text();
        EXPECT_EQ(run["hooks"], hooks) << run.text();
        EXPECT_EQ(run["played"], "50") << run.text();
    }
};

class DeadlyBridge : public BridgeGuard, public testing::WithParamInterface<const char*> {};

TEST_P(DeadlyBridge, KillsTwoLaunchesAtMost) {
    arm();
    for (int i = 0; i < 2; ++i) {
        const tqtest::ProgramEnd run = play(GetParam());
        EXPECT_EQ(run.signal, SIGKILL) << run.text();
        EXPECT_EQ(run["hooks"], "started") << run.text();
    }
    for (int i = 0; i < 2; ++i) {
        expectPlayed(play(GetParam()), "out");
    }
    EXPECT_EQ(retries(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Places, DeadlyBridge, testing::Values("write", "stream", "track"),
                         [](const auto& one) { return std::string(one.param); });

TEST_F(BridgeGuard, AProgramThatDiesElsewhereWhileItPlaysSpendsNothing) {
    arm();
    for (int i = 0; i < 3; ++i) {
        // Without a clock no block is under way at the moment of the death.
        const tqtest::ProgramEnd run = play("", "manual", "kill");
        EXPECT_EQ(run.signal, SIGKILL) << run.text();
        EXPECT_EQ(run["dying"], "25") << run.text();
        expectPlayed(play(""), "started");
    }
    EXPECT_EQ(retries(), 2U);
}

TEST_F(BridgeGuard, ChildrenThatOpenStreamsOfTheirOwnPlayAndAreRecorded) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer ends a forked child that starts a thread";
#endif
    // A child has what its parent's threads held.
    tqtest::startProgramsWithoutLeakCheck();
    tqtest::ProgramSetup setup = hooked("");
    setup.environment.erase("LD_PRELOAD");
    setup.environment["TQ_AUDIO_DEVICE"] = "null";
    setup.arguments = {TQ_RECORDER, "-q",
                       "-o",        folder.file("mix.wav"),
                       "--tracks",  folder.file("tracks"),
                       "--",        TQ_FAULT_PLAYER,
                       "fork"};
    const tqtest::ProgramEnd run = tqtest::runProgram(setup);
    expectPlayed(run, "started");
    EXPECT_EQ(run["ended"], "5") << run.text();
    std::size_t recorded = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
        const std::string name = entry.path().filename();
        recorded += name.starts_with("track-") && entry.file_size() > 480 * 50 * 4 / 2 ? 1 : 0;
    }
    EXPECT_EQ(recorded, 6U) << "of the parent and five children\n" << run.text();
}

}  // namespace
