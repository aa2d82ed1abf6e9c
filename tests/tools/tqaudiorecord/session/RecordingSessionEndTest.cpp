// What ends a recording, and what becomes of the host then.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "SessionFixture.h"
#include "session/ControlClient.h"
#include "support/LeakCheck.h"
#include "support/ProgramRunner.h"
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

/// The reader stands still until the host has played all, and asks for the end then. Each block
/// takes it `milliseconds`.
struct SessionOfASlowReader : Session {
    RecordingResult recordSlowly(int milliseconds, int signals) {
        using Clock = std::chrono::steady_clock;
        int sent = 0;
        Clock::time_point first;
        sink.onBlock = [=](const Process& process, const Block&) mutable {
            if (sent == 0) {
                const std::string path = "/proc/" + std::to_string(process.pid) + "/comm";
                EXPECT_TRUE(tqtest::eventually([&] { return contentOf(path) == "other_host\n"; }));
                first = Clock::now();
            }
            // At once it would be the same end.
            if (sent == 0 || (sent < signals && Clock::now() - first > std::chrono::seconds{1})) {
                kill(getpid(), sent++ == 0 ? SIGINT : SIGTERM);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds{milliseconds});
        };
        return record({kHost, "then", "1.5", kOther, "tone", "60"});
    }
};

TEST_F(SessionOfASlowReader, WhatWasPlayedBeforeTheEndIsTakenHoweverLongThatTakes) {
    const RecordingResult result = recordSlowly(15, 1);
    EXPECT_EQ(result.end, End::kSignal);
    EXPECT_TRUE(result.isWhole);
    EXPECT_THAT(result.notes, testing::IsEmpty());
    EXPECT_THAT(sink.notices, testing::Contains(testing::HasSubstr("still to be written")));
    EXPECT_EQ(sink.only().lostBlocks, 0U);
    EXPECT_GT(sink.only().streams.at(0).seconds(), 1.5 * 0.9);
}

TEST_F(SessionOfASlowReader, ASecondSignalLeavesTheRestOutAndThatIsSaid) {
    const RecordingResult result = recordSlowly(40, 2);
    EXPECT_FALSE(result.isWhole);
    EXPECT_THAT(result.notes, testing::Contains(testing::HasSubstr("s were not written")));
    const auto& seen = sink.only();
    EXPECT_GT(seen.lostBlocks, 0U);
    std::uint64_t bytes = seen.lostBytes;
    for (const auto& [track, stream] : seen.streams) {
        bytes += stream.bytes.size();
    }
    EXPECT_GT(bytes, 1.5 * 0.9 * (48000 * 4 + 44100 * 4));
}

/// The host has played all, the end is asked for, and what is left by then is still written.
struct SessionWithALongRest : Session {
    /// `onRest` is called for each block of it.
    RecordingResult recordRest(const std::function<void()>& onRest) {
        bool isFirst = true;
        sink.onBlock = [&](const Process& process, const Block&) {
            if (std::exchange(isFirst, false)) {
                const std::string path = "/proc/" + std::to_string(process.pid) + "/comm";
                EXPECT_TRUE(tqtest::eventually([&] { return contentOf(path) == "other_host\n"; }));
                kill(getpid(), SIGINT);
            }
            if (sink.notices.empty()) {
                std::this_thread::sleep_for(std::chrono::milliseconds{30});
            } else {
                onRest();
            }
        };
        return record({kHost, "then", "1.5", kOther, "tone", "60"});
    }
};

TEST_F(SessionWithALongRest, TheMicrophoneIsNotRecordedBehindTheEnd) {
    options.microphone = true;
    std::optional<int> atTheEnd;
    int last = 0;
    EXPECT_TRUE(recordRest([&] {
                    atTheEnd = atTheEnd.value_or(sink.heardBlocks);
                    last = sink.heardBlocks;
                    std::this_thread::sleep_for(std::chrono::milliseconds{10});
                }).isWhole);
    ASSERT_TRUE(atTheEnd) << "nothing was left";
    EXPECT_GT(last, 0);
    EXPECT_EQ(last, *atTheEnd);
    EXPECT_EQ(sink.heardBlocks, last);
}

TEST_F(SessionWithALongRest, ATurnThatLeavesSomethingSaysSo) {
    std::size_t atTheEnd = 0;
    EXPECT_TRUE(recordRest([&] {
                    atTheEnd = atTheEnd == 0 ? sink.turns.size() : atTheEnd;
                    std::this_thread::sleep_for(std::chrono::milliseconds{10});
                }).isWhole);
    ASSERT_GT(sink.turns.size(), atTheEnd);
    EXPECT_FALSE(sink.turns.at(atTheEnd - 1));
    EXPECT_TRUE(sink.turns.back());
}

TEST_F(SessionWithALongRest, IsStillAnswerable) {
    setenv("XDG_RUNTIME_DIR", caches.c_str(), 1);
    std::atomic<bool> isAnswered = false;
    bool isAnsweredMeanwhile = false;
    std::jthread client;
    EXPECT_TRUE(recordRest([&] {
                    if (!client.joinable()) {
                        client = std::jthread([&isAnswered] {
                            EXPECT_TRUE(controlRecorder(getpid(), {}).isDone);
                            isAnswered = true;
                        });
                    }
                    isAnsweredMeanwhile = isAnsweredMeanwhile || isAnswered;
                    if (!isAnsweredMeanwhile) {
                        std::this_thread::sleep_for(std::chrono::milliseconds{40});
                    }
                }).isWhole);
    EXPECT_TRUE(isAnsweredMeanwhile);
}

TEST_F(Session, ClipsAreWaitedForAndASecondSignalGivesThemUp) {
    setenv("XDG_RUNTIME_DIR", caches.c_str(), 1);
    bool isEndAsked = false;
    sink.isWriting = true;
    sink.onBlock = [&](const Process&, const Block&) {
        if (!std::exchange(isEndAsked, true)) {
            kill(getpid(), SIGINT);
        }
    };
    std::jthread client;
    std::atomic<bool> isAnswered = false;
    sink.onWait = [&] {
        if (!client.joinable()) {
            client = std::jthread([&isAnswered] {
                EXPECT_TRUE(controlRecorder(getpid(), {}).isDone);
                isAnswered = true;
            });
        }
        if (isAnswered && !sink.notices.empty()) {
            kill(getpid(), SIGTERM);
        }
    };
    EXPECT_EQ(record({kHost, "tone", "60"}).end, End::kSignal);
    EXPECT_FALSE(sink.isWriting);
    EXPECT_EQ(sink.finishes, 1);
    // The second signal was for the clips: the host is ended as politely as ever.
    EXPECT_THAT(sink.notices,
                testing::ElementsAre(testing::HasSubstr("what was asked for is still")));
}

TEST_F(Session, ATerminalThatClosesIsNobodyWhoDoesNotWantToWait) {
    bool isEndAsked = false;
    sink.isWriting = true;
    sink.onBlock = [&](const Process&, const Block&) {
        if (!std::exchange(isEndAsked, true)) {
            kill(getpid(), SIGHUP);
        }
    };
    int waits = 0;
    sink.onWait = [&] {
        if (++waits == 1) {
            kill(getpid(), SIGHUP);
            kill(getpid(), SIGTERM);
        }
        constexpr int kLong = 5;
        sink.isWriting = waits < kLong;
    };
    record({kHost, "tone", "60"});
    EXPECT_EQ(waits, 5) << "it was given up";
}

TEST_F(Session, ASaveIsObeyedAlsoWhileTheEndWaitsForAnEarlierOne) {
    bool isEndAsked = false;
    sink.isWriting = true;
    sink.onBlock = [&](const Process&, const Block&) {
        if (!std::exchange(isEndAsked, true)) {
            kill(getpid(), SIGINT);
        }
    };
    int waits = 0;
    sink.onWait = [&] {
        if (++waits == 1) {
            kill(getpid(), SIGUSR1);
        }
        constexpr int kMostWaits = 1000;
        sink.isWriting = sink.saves == 0 && waits < kMostWaits;
    };
    EXPECT_EQ(record({kHost, "tone", "60"}).end, End::kSignal);
    EXPECT_EQ(sink.saves, 1);
    EXPECT_EQ(sink.finishes, 1);
}

TEST_F(Session, ASaveThatComesWithTheEndIsObeyed) {
    bool isAsked = false;
    sink.onBlock = [&](const Process&, const Block&) {
        if (!std::exchange(isAsked, true)) {
            // The system hands the lower number over first.
            kill(getpid(), SIGINT);
            kill(getpid(), SIGUSR1);
        }
    };
    EXPECT_EQ(record({kHost, "tone", "60"}).end, End::kSignal);
    EXPECT_EQ(sink.saves, 1);
}

TEST_F(Session, WhoIsKilledIsNamed) {
    bool isEndAsked = false;
    const std::string terms = (caches / "terms").string();
    sink.onBlock = [&](const Process&, const Block&) {
        if (!std::exchange(isEndAsked, true)) {
            kill(getpid(), SIGINT);
        }
    };
    record({kHost, "stubborn", "60", terms});
    EXPECT_THAT(sink.notices,
                testing::Contains(testing::HasSubstr("did not end by SIGTERM: recorded_host (")));
}

}  // namespace
