// What ends a recording, and what becomes of the host then.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <csignal>

#include "SessionFixture.h"

namespace {

using namespace tqrecorder;

using End = RecordingResult::End;

TEST_F(Session, TheRecordingEndsAfterItsDurationAndTheHostWithIt) {
    options.durationSeconds = 0.5;
    const RecordingResult result = record({kHost, "tone", "60"});
    EXPECT_EQ(result.end, End::kDuration);
    EXPECT_EQ(result.hostExitCode, std::nullopt);
    EXPECT_GT(sink.only().streams.at(0).seconds(), 0.3);
    EXPECT_LT(sink.only().streams.at(0).seconds(), 5);
    EXPECT_NE(kill(sink.only().process.pid, 0), 0) << "it has ended and was waited for";
}

TEST_F(Session, AHostThatIsToGoOnPlaysToItsEnd) {
    options.durationSeconds = 0.3;
    options.endsHost = false;
    EXPECT_EQ(record({kHost, "tone", "1.5"}).end, End::kDuration);
    int status = 0;
    ASSERT_EQ(waitpid(sink.only().process.pid, &status, 0), sink.only().process.pid);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(Session, ASignalEndsTheRecordingAndAnotherSaves) {
    int blocks = 0;
    sink.onBlock = [&](const Process&, const Block& block) {
        blocks += block.track == 0 ? 1 : 0;
        if (block.track == 0 && (blocks == 5 || blocks == 15)) {
            kill(getpid(), blocks == 5 ? SIGUSR1 : SIGINT);
        }
    };
    EXPECT_EQ(record({kHost, "tone", "60"}).end, End::kSignal);
    EXPECT_EQ(sink.saves, 1);
    EXPECT_EQ(sink.finishes, 1);
}

TEST_F(Session, ASinkThatWantsNoMoreEndsTheRecording) {
    sink.onBlock = [&](const Process&, const Block&) { sink.end = "nobody reads on"; };
    const RecordingResult result = record({kHost, "tone", "60"});
    EXPECT_EQ(result.end, End::kSink);
    EXPECT_EQ(result.message, "nobody reads on");
}

}  // namespace
