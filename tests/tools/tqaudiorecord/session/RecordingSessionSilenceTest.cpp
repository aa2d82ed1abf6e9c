// What a recording without sound is known by.

#include <TQAudioRecord/tq_capture.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <vector>

#include "SessionFixture.h"

namespace {

using namespace tqrecorder;

TEST_F(Session, AUnitWithItsMicrophoneOnIsKnownAsTheReasonForSilence) {
    record({kHost, "microphone", "0.3"});
    EXPECT_EQ(sink.processes.at(1).facts.unitsStarted, 1U);
    EXPECT_EQ(sink.processes.at(1).facts.leftOut,
              (std::vector<LeftOutUnit>{{"unit-1", 1U << TQ_UNIT_MICROPHONE_ON}}));
    EXPECT_EQ(sink.processes.at(1).facts.blocksWithSound, 0U);
}

TEST_F(Session, OneUnitWithItsMicrophoneOnIsOneHoweverOftenItIsStarted) {
    EXPECT_EQ(record({kHost, "restarted", "0.2"}).hostExitCode, 0);
    EXPECT_EQ(sink.processes.at(1).facts.unitsStarted, 4U);
    EXPECT_EQ(sink.processes.at(1).facts.leftOut,
              (std::vector<LeftOutUnit>{{"unit-1", 1U << TQ_UNIT_MICROPHONE_ON}}));
}

TEST_F(Session, AUnitThatRendersSilenceHidesNoneThatIsLeftOut) {
    EXPECT_EQ(record({kHost, "beside", "0.4"}).hostExitCode, 0);
    const HostFacts& facts = sink.processes.at(1).facts;
    EXPECT_GT(facts.blocks, 10U);
    EXPECT_EQ(facts.blocksWithSound, 0U);
    ASSERT_EQ(facts.leftOut.size(), 1U);
    EXPECT_EQ(facts.leftOut[0].reasons, 1U << TQ_UNIT_MICROPHONE_ON);
}

TEST_F(Session, AUnitThatIsNeverStartedIsKnownAsTheReasonForSilence) {
    record({kHost, "idle"});
    EXPECT_EQ(sink.processes.at(1).facts.unitsCreated, 1U);
    EXPECT_EQ(sink.processes.at(1).facts.unitsStarted, 0U);
}

TEST_F(Session, AHostThatRendersSilenceIsKnownToDoSo) {
    record({kHost, "silent", "0.5"});
    EXPECT_GT(sink.processes.at(1).facts.blocks, 10U);
    EXPECT_EQ(sink.processes.at(1).facts.blocksWithSound, 0U);
}

TEST_F(Session, AGuardThatIsNotToBeArmedKeepsTheHooksOut) {
    options.armGuard = false;
    EXPECT_EQ(record({kHost, "tone", "0.3"}).hostExitCode, 0);
    const HostFacts& facts = sink.processes.at(1).facts;
    EXPECT_FALSE(facts.hooksInstalled);
    EXPECT_TRUE(facts.guardRefused);
    EXPECT_EQ(facts.retriesLeft, 0);
    EXPECT_EQ(facts.blocks, 0U);
}

TEST_F(Session, AHostThatDiedTwiceInTheHooksIsNotArmedByItself) {
    EXPECT_EQ(record({kHost, "die"}).hostExitCode, 128 + SIGKILL);
    EXPECT_EQ(record({kHost, "die"}).hostExitCode, 128 + SIGKILL);
    sink.processes.clear();
    EXPECT_EQ(record({kHost, "tone", "0.3"}).hostExitCode, 0);
    const HostFacts& facts = sink.processes.at(1).facts;
    EXPECT_TRUE(facts.guardRefused);
    EXPECT_FALSE(facts.hooksInstalled);
    EXPECT_EQ(facts.retriesLeft, 0);
}

}  // namespace
