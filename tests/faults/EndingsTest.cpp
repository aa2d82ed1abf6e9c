#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>

#include "FaultLaunches.h"

// Which endings cost a retry: deaths inside, and nothing else.

namespace {

using Endings = FaultLaunches;

TEST_F(Endings, OrderlyOnesInsideACallbackCostNothing) {
    arm();
    for (const char* const how : {"exit", "quick_exit", "exec", "execv", "execvp", "execve",
                                  "execvpe", "fexecve", "execle", "execveat", "self"}) {
        const tqtest::ProgramEnd run = launch(std::string("inside:") + how);
        EXPECT_EQ(run.code, 0) << how << ": " << run.text();
        expectPlays(launch("play"), "started");
        EXPECT_EQ(retries(), 2U) << how;
    }
}

TEST_F(Endings, AProgramThatBecomesItselfFindsItsHooks) {
    arm();
    const tqtest::ProgramEnd run = launch("inside:self");
    EXPECT_EQ(run["played"], "10") << run.text();
    EXPECT_EQ(run.output.find("hooks=out"), std::string::npos) << run.text();
}

TEST_F(Endings, ADeathInsideAfterAnExecThatFailedIsOne) {
    arm();
    EXPECT_EQ(launch("inside:noexec").signal, SIGKILL);
    expectPlays(launch("play"), "started");
    EXPECT_EQ(retries(), 1U);
}

TEST_F(Endings, ADeathInsideIsOne) {
    arm();
    EXPECT_EQ(launch("inside:kill").signal, SIGKILL);
    EXPECT_EQ(word(count, 0), 1U);
    expectPlays(launch("play"), "started");
    EXPECT_EQ(retries(), 1U);
}

TEST_F(Endings, OneThatRunsNoHandlerIsADeathBecauseCrashHandlersEndSo) {
    arm();
    EXPECT_EQ(launch("inside:_exit").code, 0);
    EXPECT_EQ(word(count, 0), 1U);
    expectPlays(launch("play"), "started");
    EXPECT_EQ(retries(), 1U);
}

TEST_F(Endings, AChildThatEndsOrDiesInsideLeavesItsParentAlone) {
    arm();
    expectPlays(launch("child:exit"), "started");
    expectPlays(launch("play"), "started");
    EXPECT_EQ(retries(), 2U);
    expectPlays(launch("child:kill"), "started");
    expectPlays(launch("play"), "started");
    EXPECT_EQ(retries(), 1U) << "a child's death inside is a death";
}

TEST_F(Endings, ASecondInstanceIsNoDeathOfTheFirst) {
    arm();
    const std::string go = folder.file("go");
    tqtest::Program first(hooked("wait:" + go));
    ASSERT_TRUE(
        tqtest::eventually([&] { return first.output().find("inside=1") != std::string::npos; }));
    for (int i = 0; i < 3; ++i) {
        expectPlays(launch("play"), "started");
        EXPECT_EQ(word(count, 0), 1U) << "the first one is still inside";
    }
    EXPECT_EQ(retries(), 2U);
    std::ofstream(go) << "on";
    expectPlays(first.wait(), "started");
    EXPECT_EQ(word(count, 0), 0U);
    expectPlays(launch("play"), "started");
    EXPECT_EQ(retries(), 2U);
}

TEST_F(Endings, ADeathOfEitherOfTwoInstancesIsOne) {
    arm();
    const std::string go = folder.file("go");
    {
        tqtest::Program first(hooked("wait:" + go));
        ASSERT_TRUE(tqtest::eventually(
            [&] { return first.output().find("inside=1") != std::string::npos; }));
        EXPECT_EQ(launch("inside:kill").signal, SIGKILL);
        EXPECT_EQ(word(count, 0), 1U);
        expectPlays(launch("play"), "started");
        EXPECT_EQ(retries(), 1U) << "of the second";
    }
    expectPlays(launch("play"), "out");
    EXPECT_EQ(retries(), 0U) << "and of the first";
}

TEST_F(Endings, AListenerThatDiesInDeliveryKillsTwoLaunchesAtMost) {
    for (const char* const where : {"mix", "track", "event"}) {
        arm();
        tqtest::ProgramSetup setup = hooked("play");
        setup.environment["LD_PRELOAD"] += std::string(":") + TQ_FAULT_LISTENER;
        setup.environment["TQ_TEST_DEADLY"] = where;
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(tqtest::runProgram(setup).signal, SIGKILL) << where;
            EXPECT_EQ(word(count, 0), 0U) << "it died outside the callbacks";
        }
        for (int i = 0; i < 3; ++i) {
            expectPlays(tqtest::runProgram(setup), "out");
        }
        EXPECT_EQ(retries(), 0U);
    }
}

TEST_F(Endings, TheRecordersOwnSignalIsNoDeath) {
    arm();
    tqtest::ProgramSetup setup = hooked("");
    setup.environment.erase("LD_PRELOAD");
    setup.arguments = {TQ_RECORDER,         "-q",  "-o", folder.file("mix.wav"),
                       "--duration",        "0.5", "--", TQ_FAULT_PLAYER,
                       "wait:/nowhere/file"};
    const tqtest::ProgramEnd run = tqtest::runProgram(setup);
    EXPECT_NE(run.output.find("inside=1"), std::string::npos) << run.text();
    ASSERT_EQ(word(count, 0), 1U) << "it was ended inside its callback";
    expectPlays(launch("play"), "started");
    EXPECT_EQ(retries(), 2U);
}

TEST_F(Endings, ThirtySlowCallbacksCutShortByExitCostNothing) {
    arm();
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(launch("inside:exit").code, 0);
    }
    expectPlays(launch("play"), "started");
    EXPECT_EQ(retries(), 2U);
}

}  // namespace
