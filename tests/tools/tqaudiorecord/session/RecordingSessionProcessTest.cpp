// Hosts that die, fork, start others or spoil what they share.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "SessionFixture.h"
#include "session/ElfFile.h"
#include "support/LeakCheck.h"
#include "support/ProgramRunner.h"

namespace {

using namespace tqrecorder;

namespace fs = std::filesystem;
using End = RecordingResult::End;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

/// What the kernel calls a process: the file that it runs, cut to 15 letters.
std::string nameOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
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

/// How far samples are from a sine of 700 Hz and half of full scale at most; its phase is that of
/// the first tenth of a second. `places` says which frame each of them is.
double worstDifference(const std::vector<double>& samples,
                       const std::vector<std::uint64_t>& places) {
    const double step = 2 * M_PI * 700 / 48000;
    double sine = 0;
    double cosine = 0;
    for (std::size_t i = 0; i < 4800; ++i) {
        sine += samples.at(i) * std::sin(step * static_cast<double>(places.at(i)));
        cosine += samples.at(i) * std::cos(step * static_cast<double>(places.at(i)));
    }
    const double phase = std::atan2(cosine, sine);
    double worst = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double at = step * static_cast<double>(places[i] % 480) + phase;
        worst = std::max(worst, std::abs(samples[i] - 0.5 * std::sin(at)));
    }
    return worst;
}

TEST_F(Session, ALossIsToldOfEachStreamWhereItIsAndHowLong) {
    options.ringSeconds = 0.1;
    int stalls = 0;
    std::vector<std::uint64_t> places;  // of the track's frames that came
    std::uint64_t place = 0;
    std::uint64_t lostOfMix = 0;
    std::uint64_t lostOfTrack = 0;
    sink.onBlock = [&](const Process&, const Block& block) {
        if (block.track == 0) {
            lostOfMix += block.lostFrames;
            // The reader comes back while the host still plays.
            if (sink.only().streams.at(0).stamps.size() % 20 == 0 && stalls++ < 3) {
                std::this_thread::sleep_for(std::chrono::milliseconds{600});
            }
            return;
        }
        lostOfTrack += block.lostFrames;
        place += block.lostFrames;
        for (std::size_t i = 0; i < block.frames.size() / block.format.frameBytes(); ++i) {
            places.push_back(place++);
        }
    };
    EXPECT_EQ(record({kHost, "tone", "4"}).hostExitCode, 0);
    EXPECT_GE(stalls, 3);
    EXPECT_GT(lostOfMix, 4410U);
    EXPECT_GT(lostOfTrack, 4800U);
    const auto& seen = sink.only();
    EXPECT_GE(seen.lostBytes, lostOfMix * 4 + lostOfTrack * 8);
    const auto& track = seen.streams.at(1);
    ASSERT_EQ(track.format.sampleRate, 48000);
    // The tone ends within the last block.
    constexpr std::size_t kLast = 8192;
    std::vector<double> samples = track.samples(0);
    ASSERT_EQ(samples.size(), places.size());
    ASSERT_GT(samples.size(), 48000U);
    samples.resize(samples.size() - kLast);
    EXPECT_LT(worstDifference(samples, places), 0.001);
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

TEST_F(Session, WhatAHostDeliveredBeforeItExecsAnotherIsReadFirst) {
    // The reader stands still until the next program runs, and is slow then.
    bool waited = false;
    sink.onBlock = [&](const Process& process, const Block& block) {
        if (block.track == 0 && !std::exchange(waited, true)) {
            EXPECT_TRUE(tqtest::eventually([&] { return nameOf(process.pid) != "recorded_host"; }));
        }
        if (sink.only().names.size() == 1) {
            std::this_thread::sleep_for(std::chrono::milliseconds{2});
        }
    };
    EXPECT_EQ(record({kHost, "then", "3", kOther, "short", "0.5"}).hostExitCode, 0);
    ASSERT_EQ(sink.processes.size(), 1U);
    const auto& seen = sink.only();
    EXPECT_EQ(seen.names, (std::vector<std::string>{"recorded_host", "other_host"}));
    EXPECT_EQ(seen.lostBlocks, 0U);
    EXPECT_GT(seen.streams.at(0).seconds(), 3 * 0.9 + 0.4);
}

TEST_F(Session, WhatIsLostBeforeAHostExecsAnotherIsCounted) {
    options.ringSeconds = 0.1;
    bool waited = false;
    sink.onBlock = [&](const Process& process, const Block& block) {
        if (block.track == 0 && !std::exchange(waited, true)) {
            EXPECT_TRUE(tqtest::eventually([&] { return nameOf(process.pid) != "recorded_host"; }));
        }
    };
    EXPECT_EQ(record({kHost, "then", "2", kOther, "short", "0.1"}).hostExitCode, 0);
    const auto& seen = sink.only();
    EXPECT_EQ(seen.names.size(), 2U);
    std::uint64_t bytes = seen.lostBytes;
    for (const auto& [track, stream] : seen.streams) {
        bytes += stream.bytes.size();
    }
    EXPECT_GT(bytes, 2 * 0.9 * (48000 * 4 + 44100 * 4));
}

TEST_F(Session, AChildWithoutExecIsAProcessOfItsOwn) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer ends a forked child that starts a thread";
#elif defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "a child has the address sanitizer's memory locked where another thread was "
                    "just taking some";
#endif
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

TEST_F(Session, AProgramThatIsTheLoadersArgumentIsRecordedUnderItsOwnName) {
    tqtest::startProgramsWithoutLeakCheck();
    const auto self = readElfFile("/proc/self/exe");
    ASSERT_TRUE(self);
    EXPECT_EQ(record({self->interpreter, kHost, "tone", "0.3"}).hostExitCode, 0);
    EXPECT_EQ(sink.only().process.name, "recorded_host");
    EXPECT_GT(sink.only().facts.blocksWithSound, 0U);
}

}  // namespace
