// What ends a recording, and what becomes of the host then.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <utility>

#include "SessionFixture.h"
#include "support/LeakCheck.h"
#include "support/sound/Sound.h"

namespace {

using namespace tqrecorder;

using End = RecordingResult::End;

struct SessionOfADuration : Session {
    /// A host that plays `times` as long as the recording lasts, from before its first sound on:
    /// twice as long again when a loaded machine brought none of it in that time.
    RecordingResult recordHeard(double times) {
        for (double seconds = 0.4;; seconds *= 2) {
            options.durationSeconds = seconds;
            const RecordingResult result = record({kHost, "tone", std::to_string(seconds * times)});
            if (seconds > 20 || sink.only().streams.contains(0)) {
                return result;
            }
            sink = {};
        }
    }
};

TEST_F(SessionOfADuration, EndsAfterItAndTheHostWithIt) {
    const RecordingResult result = recordHeard(100);
    EXPECT_EQ(result.end, End::kDuration);
    EXPECT_EQ(result.hostExitCode, std::nullopt);
    EXPECT_LT(sink.only().streams.at(0).seconds(), *options.durationSeconds + 5);
    EXPECT_NE(kill(sink.only().process.pid, 0), 0) << "it has ended and was waited for";
}

TEST_F(SessionOfADuration, LetsAHostThatIsToGoOnPlayToItsEnd) {
    options.endsHost = false;
    EXPECT_EQ(recordHeard(4).end, End::kDuration);
    int status = 0;
    ASSERT_EQ(waitpid(sink.only().process.pid, &status, 0), sink.only().process.pid);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(Session, ASignalEndsTheRecordingAndAnotherSaves) {
    // One after the other: of two that wait, the system hands the lower number over first.
    bool isSaveAsked = false;
    bool isEndAsked = false;
    sink.onBlock = [&](const Process&, const Block&) {
        if (!std::exchange(isSaveAsked, true)) {
            kill(getpid(), SIGUSR1);
        } else if (sink.saves == 1 && !std::exchange(isEndAsked, true)) {
            kill(getpid(), SIGINT);
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

TEST_F(Session, WhatIsLeftAtAProgramsEndWaitsForTheRecorder) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer cannot be preloaded into a program built without it";
#endif
    tqtest::startProgramsWithoutLeakCheck();
    // Ten times what the ring holds, written in a moment: nothing paces that device.
    options.ringSeconds = 0.2;
    const std::size_t frames = std::size_t{9} * 48000;
    const std::string path = (caches / "long.wav").string();
    tqtest::writeWav(tqtest::markedNoise({}, frames), path);
    record({"aplay", "-q", "-D", "null", path});
    EXPECT_EQ(sink.only().lostBlocks, 0U);
    EXPECT_GE(sink.only().streams.at(1).samples(0).size(), frames);
}

}  // namespace
