#include "session/RecordingSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sndfile.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <utility>

#include "SessionFixture.h"

// Real hosts in real processes on the device that plays into nothing.

namespace {

using namespace tqrecorder;
namespace fs = std::filesystem;
using End = RecordingResult::End;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

/// One second of a loud tone.
void writeVoice(const std::string& path) {
    SF_INFO info{};
    info.samplerate = 16000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    std::vector<float> samples(16000);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = std::sin(static_cast<float>(i) * 0.2F) * 0.5F;
    }
    sf_write_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
}

TEST_F(Session, AHostIsRecordedToItsEnd) {
    const RecordingResult result = record({kHost, "tone", "1"});
    EXPECT_EQ(result.end, End::kHostEnded) << result.message;
    EXPECT_EQ(result.hostExitCode, 0);
    EXPECT_EQ(sink.finishes, 1);
    ASSERT_EQ(sink.processes.size(), 1U);
    const auto& seen = sink.only();
    EXPECT_EQ(seen.process.name, "recorded_host");
    EXPECT_TRUE(seen.process.isCommand);
    ASSERT_TRUE(seen.streams.contains(0));
    const auto& mix = seen.streams.at(0);
    EXPECT_EQ(mix.format, (BlockFormat{44100, 2, 16, false}));
    EXPECT_GT(mix.seconds(), 0.9);
    EXPECT_TRUE(seen.facts.hooksInstalled);
    EXPECT_EQ(seen.facts.unitsCreated, 1U);
    EXPECT_EQ(seen.facts.unitsStarted, 1U);
    EXPECT_GT(seen.facts.blocksWithSound, 0U);
    EXPECT_TRUE(seen.ended);
}

TEST_F(Session, TheMixHoldsTheHostsTone) {
    record({kHost, "tone", "1"});
    ASSERT_TRUE(sink.only().streams.contains(0));
    const auto samples = sink.only().streams.at(0).samples(0);
    ASSERT_GT(samples.size(), 35000U);
    // From the middle: the mix runs before and after the unit does.
    const std::vector<double> middle(samples.begin() + 15000, samples.begin() + 30000);
    EXPECT_NEAR(amplitudeAt(middle, 44100, 700), 0.5, 0.03);
}

TEST_F(Session, ATrackComesInterleavedInItsOwnFormatWithItsUnitsName) {
    record({kHost, "tone", "1"});
    ASSERT_TRUE(sink.only().streams.contains(1));
    const auto& track = sink.only().streams.at(1);
    EXPECT_EQ(track.format, (BlockFormat{48000, 2, 16, false}));
    EXPECT_EQ(track.unit, "unit-1");
    EXPECT_GT(track.seconds(), 0.9);
    const auto left = track.samples(0);
    const auto right = track.samples(1);
    EXPECT_EQ(left, right);
    EXPECT_NEAR(amplitudeAt(left, 48000, 700), 0.5, 0.01);
}

TEST_F(Session, InterleavedIntegersComeAsTheyAre) {
    record({kHost, "short", "0.5"});
    ASSERT_TRUE(sink.only().streams.contains(1));
    const auto& track = sink.only().streams.at(1);
    EXPECT_EQ(track.format, (BlockFormat{48000, 2, 16, false}));
    EXPECT_NEAR(amplitudeAt(track.samples(1), 48000, 700), 0.5, 0.01);
}

TEST_F(Session, AGraphsTrackBearsTheGraphsName) {
    record({kHost, "graph", "0.5"});
    ASSERT_TRUE(sink.only().streams.contains(1));
    EXPECT_EQ(sink.only().streams.at(1).unit, "graph-1");
    EXPECT_EQ(sink.only().facts.unitsStarted, 1U);
}

TEST_F(Session, EventsAndNumbersArrive) {
    record({kHost, "tone", "1"});
    const auto& seen = sink.only();
    EXPECT_THAT(seen.events, testing::Contains(testing::Field(
                                 &Event::message, testing::HasSubstr("audio unit start: 1"))));
    for (const Event& event : seen.events) {
        EXPECT_GT(event.microseconds, 0U);
    }
    ASSERT_EQ(seen.numbers.size(), 1U);
    EXPECT_EQ(seen.numbers.front().track, 1);
    EXPECT_EQ(seen.numbers.front().format.sampleRate, 48000);
    EXPECT_EQ(seen.numbers.front().format.channels, 2U);
    EXPECT_GT(sink.ticks, 3);
    EXPECT_TRUE(seen.log.empty()) << "nobody has asked for it";
}

TEST_F(Session, TheLogArrivesWhenItIsWanted) {
    options.verbose = true;
    record({kHost, "tone", "0.2"});
    EXPECT_THAT(sink.only().log,
                testing::Contains(testing::AllOf(
                    testing::Field(&LogLine::level, 2),
                    testing::Field(&LogLine::function, "Record_unit_AudioOutputUnitStart"),
                    testing::Field(&LogLine::text, testing::HasSubstr("AudioOutputUnitStart")))));
}

TEST_F(Session, TheExitCodeIsTheHosts) {
    EXPECT_EQ(record({kHost, "exit", "7"}).hostExitCode, 7);
    EXPECT_EQ(sink.processes.size(), 1U) << "a host that plays nothing is known as well";
}

TEST_F(Session, AHostKilledInTheMiddleIsRecordedToItsLastBlock) {
    int blocks = 0;
    sink.onBlock = [&](const Process& process, const Block& block) {
        if (block.track == 0 && ++blocks == 40) {
            kill(process.pid, SIGKILL);
        }
    };
    const RecordingResult result = record({kHost, "tone", "60"});
    EXPECT_EQ(result.end, End::kHostEnded);
    EXPECT_EQ(result.hostExitCode, 128 + SIGKILL);
    EXPECT_GE(sink.only().streams.at(0).stamps.size(), 40U);
    EXPECT_EQ(sink.only().lostBlocks, 0U);
    EXPECT_EQ(sink.finishes, 1);
}

TEST_F(Session, WhatADeadHostDeliveredIsReadWhenTheReaderWasBehind) {
    // The reader stands still while the host plays and dies: all of it is in the memory.
    bool waited = false;
    sink.onBlock = [&](const Process& process, const Block& block) {
        if (block.track == 0 && !std::exchange(waited, true)) {
            siginfo_t info{};
            waitid(P_PID, static_cast<id_t>(process.pid), &info, WEXITED | WNOWAIT);
        }
    };
    record({kHost, "tone", "2"});
    EXPECT_TRUE(waited);
    EXPECT_GT(sink.only().streams.at(1).seconds(), 1.8);
    EXPECT_EQ(sink.only().lostBlocks, 0U);
}

TEST_F(Session, WhatAStalledReaderCannotTakeIsCountedAndTheHostPlaysOn) {
    options.ringSeconds = 0.1;
    bool waited = false;
    sink.onBlock = [&](const Process& process, const Block& block) {
        if (block.track == 0 && !std::exchange(waited, true)) {
            siginfo_t info{};
            waitid(P_PID, static_cast<id_t>(process.pid), &info, WEXITED | WNOWAIT);
        }
    };
    EXPECT_EQ(record({kHost, "tone", "2"}).hostExitCode, 0);
    const auto& seen = sink.only();
    EXPECT_GT(seen.lostBlocks, 50U);
    EXPECT_GT(seen.lostBytes, seen.lostBlocks * 100);
    // Nothing is missing that was not counted: about two seconds of mix and of one track.
    std::uint64_t bytes = seen.lostBytes;
    for (const auto& [track, stream] : seen.streams) {
        bytes += stream.bytes.size();
    }
    EXPECT_GT(bytes, 2 * 0.9 * (48000 * 4 + 44100 * 4));
}

TEST_F(Session, TwoHostsAtOnceAreRecordedEachUnderItsOwnName) {
    const RecordingResult result =
        record({kHost, "run", kHost, "tone", "1", "--", kOther, "short", "1"});
    EXPECT_EQ(result.hostExitCode, 0);
    std::map<std::string, int> playing;
    for (const auto& [id, seen] : sink.processes) {
        if (seen.facts.blocksWithSound > 0) {
            ++playing[seen.process.name];
            EXPECT_FALSE(seen.process.isCommand);
            EXPECT_GT(seen.streams.at(0).seconds(), 0.9);
            EXPECT_TRUE(seen.ended);
        }
    }
    EXPECT_EQ(playing, (std::map<std::string, int>{{"other_host", 1}, {"recorded_host", 1}}));
    EXPECT_EQ(sink.processes.at(1).process.isCommand, true);
}

TEST_F(Session, ALauncherWithoutAUnitDeliversNothing) {
    record({kHost, "run", kHost, "tone", "1"});
    ASSERT_EQ(sink.processes.size(), 2U);
    EXPECT_TRUE(sink.processes.at(1).streams.empty());
    EXPECT_GT(sink.processes.at(2).streams.at(0).seconds(), 0.9);
}

TEST_F(Session, AHostThatExecsAnotherStaysTheSameProcessUnderAnotherName) {
    EXPECT_EQ(record({kHost, "exec", kOther, "tone", "0.5"}).hostExitCode, 0);
    ASSERT_EQ(sink.processes.size(), 1U);
    const auto& seen = sink.processes.at(1);
    EXPECT_EQ(seen.names, (std::vector<std::string>{"recorded_host", "other_host"}));
    EXPECT_TRUE(seen.process.isCommand);
    EXPECT_GT(seen.facts.blocksWithSound, 0U);
}

TEST_F(Session, AChildWithoutExecIsAProcessOfItsOwn) {
    // In the child, what belongs to threads of the parent looks like a leak.
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0", 1);
    EXPECT_EQ(record({kHost, "fork", "1"}).hostExitCode, 0);
    ASSERT_EQ(sink.processes.size(), 2U);
    const auto& child = sink.processes.at(2);
    EXPECT_FALSE(child.process.isCommand);
    EXPECT_NE(child.process.pid, sink.processes.at(1).process.pid);
    EXPECT_GT(child.facts.blocksWithSound, 0U);
    ASSERT_TRUE(child.streams.contains(1));
    EXPECT_GT(child.streams.at(1).seconds(), 0.4);
    EXPECT_EQ(sink.processes.at(1).facts.blocksWithSound, 0U);
}

TEST_F(Session, AHostThatClosesAllDescriptorsIsRecordedAllTheSame) {
    EXPECT_EQ(record({kHost, "closing", "1"}).hostExitCode, 0);
    EXPECT_GT(sink.only().streams.at(0).seconds(), 0.9);
}

TEST_F(Session, AHostThatSpoilsTheSharedMemoryIsDroppedAndPlaysOn) {
    const RecordingResult result = record({kHost, "scribble", "0.5"});
    EXPECT_EQ(result.hostExitCode, 0);
    EXPECT_THAT(result.notes, testing::ElementsAre(testing::HasSubstr("corrupt")));
    EXPECT_EQ(sink.finishes, 1);
}

TEST_F(Session, AScriptsHostIsRecordedUnderItsOwnName) {
    if (kIsSanitized) {
        GTEST_SKIP() << "a sanitizer's run-time cannot be loaded into the shell";
    }
    const std::string script = (caches / "start game.sh").string();
    std::ofstream(script) << "#!/bin/sh\n\"$1\" tone 0.5 | cat\nexit 5\n";
    fs::permissions(script, fs::perms::owner_all);
    EXPECT_EQ(record({script, kHost}).hostExitCode, 5);
    ASSERT_EQ(sink.processes.size(), 2U) << "the shell and the host, not what else it starts";
    EXPECT_TRUE(sink.processes.at(1).process.isCommand);
    EXPECT_EQ(sink.processes.at(2).process.name, "recorded_host");
    EXPECT_GT(sink.processes.at(2).facts.blocksWithSound, 0U);
}

TEST_F(Session, ALibraryWhosePathNoPreloadListCanHoldIsLoadedAllTheSame) {
    const fs::path folder = caches / "with: spaces";
    fs::create_directory_symlink(fs::path(kGate).parent_path(), folder);
    options.command = {kHost, "tone", "0.3"};
    RecordingSession session(options, sink, folder / fs::path(kGate).filename());
    EXPECT_EQ(session.run().hostExitCode, 0);
    EXPECT_GT(sink.only().facts.blocksWithSound, 0U);
}

TEST_F(Session, WhatWasToBePreloadedAnywayStillIs) {
    if (kIsSanitized) {
        GTEST_SKIP() << "a sanitizer's run-time cannot be loaded into the shell";
    }
    setenv("LD_PRELOAD", "libm.so.6", 1);
    const RecordingResult result =
        record({"/bin/sh", "-c", "case $LD_PRELOAD in *gate.so:libm.so.6) exit 9;; esac"});
    unsetenv("LD_PRELOAD");
    EXPECT_EQ(result.hostExitCode, 9);
}

TEST_F(Session, AToolThatAHostStartsIsLeftAlone) {
    if (kIsSanitized) {
        GTEST_SKIP() << "a sanitizer's run-time cannot be loaded into the shell";
    }
    // 0 for a match: that would be the library in a tool that has no sound.
    const RecordingResult result =
        record({"/bin/sh", "-c",
                "grep -q gate.so /proc/self/maps || exit 8; "
                "grep -q -e libTQAudioRecord -e _tap.so /proc/self/maps; exit $?"});
    EXPECT_EQ(result.hostExitCode, 1);
}

TEST_F(Session, AHostWhoseRecorderIsKilledPlaysOnToItsNormalEnd) {
    // The host becomes this process's child when its recorder is gone.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const pid_t recorder = fork();
    if (recorder == 0) {
        sink.onBlock = [&](const Process& process, const Block& block) {
            if (block.track == 1) {
                const auto written = write(ends[1], &process.pid, sizeof process.pid);
                kill(getpid(), written > 0 ? SIGKILL : SIGABRT);
            }
        };
        record({kHost, "tone", "2"});
        _exit(1);
    }
    pid_t host = 0;
    ASSERT_EQ(read(ends[0], &host, sizeof host), static_cast<ssize_t>(sizeof host));
    int status = 0;
    ASSERT_EQ(waitpid(recorder, &status, 0), recorder);
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    ASSERT_EQ(waitpid(host, &status, 0), host);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    close(ends[0]);
    close(ends[1]);
}

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

TEST_F(Session, DuckingIsHeardInTheTracksAndTheMixIsFromBeforeIt) {
    options.duck = true;
    options.duckDecibels = -20;
    record({kHost, "tone", "1.5"});
    const auto track = sink.only().streams.at(1).samples(0);
    ASSERT_GT(track.size(), 60000U);
    const std::vector<double> late(track.begin() + 48000, track.end());
    EXPECT_NEAR(amplitudeAt(late, 48000, 700), 0.05, 0.01);
    const auto mix = sink.only().streams.at(0).samples(0);
    ASSERT_GT(mix.size(), 50000U);
    EXPECT_NEAR(amplitudeAt({mix.begin() + 44100, mix.begin() + 50000}, 44100, 700), 0.5, 0.03);
}

TEST_F(Session, DuckingFollowsTheLevelOfAFile) {
    // Loud from 0.0 to 1.0 seconds, then silent for good.
    const std::string path = (caches / "voice.wav").string();
    writeVoice(path);
    options.duck = true;
    options.duckDecibels = -40;
    options.duckOn = path;
    record({kHost, "tone", "5"});
    const auto track = sink.only().streams.at(1).samples(0);
    ASSERT_GT(track.size(), 220000U);
    const auto part = [&track](double from, double to) {
        return amplitudeAt({track.begin() + static_cast<long>(from * 48000),
                            track.begin() + static_cast<long>(to * 48000)},
                           48000, 700);
    };
    EXPECT_LT(part(0.5, 0.8), 0.05);
    EXPECT_GT(part(4.2, 4.5), 0.4) << "let go of after the hold";
}

TEST_F(Session, ADuckSourceThatCannotBeReadKeepsTheHostFromStarting) {
    options.duck = true;
    options.duckOn = (caches / "none.wav").string();
    const RecordingResult result = record({kHost, "tone", "60"});
    EXPECT_EQ(result.end, End::kNotStarted);
    EXPECT_THAT(result.message, testing::HasSubstr("none.wav"));
}

TEST_F(Session, TheMicrophoneOfADeviceWithoutOneIsSilenceAndDucksNothing) {
    options.duck = true;
    options.duckOn = "microphone";
    record({kHost, "tone", "1"});
    EXPECT_NEAR(amplitudeAt(sink.only().streams.at(1).samples(0), 48000, 700), 0.5, 0.01);
}

TEST_F(Session, CompressionIsHeardInTheTracks) {
    options.compress = true;
    options.compressThresholdDecibels = -30;
    record({kHost, "tone", "1"});
    const auto track = sink.only().streams.at(1).samples(0);
    ASSERT_GT(track.size(), 40000U);
    EXPECT_LT(amplitudeAt({track.begin() + 24000, track.begin() + 40000}, 48000, 700), 0.4);
}

TEST_F(Session, AUnitWithItsMicrophoneOnIsKnownAsTheReasonForSilence) {
    record({kHost, "microphone", "0.3"});
    EXPECT_EQ(sink.processes.at(1).facts.unitsStarted, 1U);
    EXPECT_EQ(sink.processes.at(1).facts.unitsWithMicrophone, 1U);
    EXPECT_EQ(sink.processes.at(1).facts.blocksWithSound, 0U);
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
