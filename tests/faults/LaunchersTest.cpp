#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <csignal>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/LeakCheck.h"
#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

// Commands that do something to their own process before another program plays, and programs that
// end in unusual ways: under the recorder they do what they do without it.

namespace {

class Launched : public testing::Test {
  protected:
    // A program that a signal or its last thread ends has what its threads held.
    void SetUp() override { tqtest::startProgramsWithoutLeakCheck(); }

    [[nodiscard]] tqtest::ProgramEnd bare(const std::vector<std::string>& command) const {
        return tqtest::runProgram({.arguments = command, .environment = environment()});
    }
    [[nodiscard]] tqtest::ProgramEnd recorded(const std::vector<std::string>& command,
                                              bool isQuiet = true) const {
        std::vector<std::string> arguments{TQ_RECORDER, "--overwrite", "-o",
                                           folder.file("mix.wav")};
        if (isQuiet) {
            arguments.emplace_back("-q");
        }
        arguments.emplace_back("--");
        arguments.insert(arguments.end(), command.begin(), command.end());
        return tqtest::runProgram({.arguments = arguments, .environment = environment()});
    }
    [[nodiscard]] std::map<std::string, std::string> environment() const {
        return {{"XDG_CACHE_HOME", folder.file("caches")}, {"TQ_AUDIO_DEVICE", "null"}};
    }

    TemporaryFolder folder;
};

/// All that is not the recorder's.
std::string othersLines(const std::string& text) {
    std::istringstream lines(text);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        kept += line.starts_with("tqaudiorecord: ") ? "" : line + "\n";
    }
    return kept;
}

using Command = std::vector<std::string>;

class Launchers : public Launched, public testing::WithParamInterface<Command> {};

TEST_P(Launchers, GiveTheSameOutputAndCodeAsWithoutTheRecorder) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a program that is built without the sanitizer cannot load libraries with it";
#endif
    Command command = GetParam();
    command.insert(command.end(), {"sh", "-c", "id -u; nice; echo hello; exit 7"});
    const tqtest::ProgramEnd without = bare(command);
    if (without.code != 7) {
        GTEST_SKIP() << "cannot be done here: " << without.text();
    }
    const tqtest::ProgramEnd with = recorded(command);
    EXPECT_EQ(with.code, 7) << with.text();
    EXPECT_EQ(with.output, without.output);
    EXPECT_EQ(othersLines(with.errors), without.errors);
}

INSTANTIATE_TEST_SUITE_P(
    OfDebian, Launchers,
    testing::Values(Command{"setpriv", "--reuid=1000", "--clear-groups"},
                    Command{"setpriv", "--no-new-privs"}, Command{"unshare", "-U"},
                    Command{"unshare", "-Urm"}, Command{"unshare", "-Up", "--fork"},
                    Command{"setsid", "-w"}, Command{"env", "A=b"}, Command{"env", "-i"},
                    Command{"nice", "-n", "5"}, Command{"ionice", "-c", "3"},
                    Command{"chrt", "-o", "0"}, Command{"taskset", "1"}, Command{"nohup"},
                    Command{"timeout", "60"}, Command{"stdbuf", "-o0"},
                    Command{"prlimit", "--nofile=100"}, Command{"chroot", "/"},
                    Command{"runuser", "-u", "nobody", "--"}),
    [](const auto& one) {
        std::string name;
        for (const std::string& word : one.param) {
            for (const char letter : word) {
                name += std::isalnum(static_cast<unsigned char>(letter)) != 0 ? letter : '_';
            }
        }
        return name;
    });

TEST_F(Launched, AProgramWhoseMainThreadHasGoneEndsWithItsLastThread) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer has a thread of its own, which is not known by its name";
#endif
    // Whatever that is called: none, or as the thread of ours in whose callback it was made.
    for (const char* const name : {"player", "", "TQAudioDevice"}) {
        const tqtest::ProgramEnd run = recorded({TQ_FAULT_PLAYER, "thread", name}, false);
        EXPECT_EQ(run.code, 0) << run.text();
        EXPECT_EQ(run["played"], "50") << run.text();
        EXPECT_THAT(run.errors, testing::HasSubstr("24000 written, 24000 into its track"));
    }
}

TEST_F(Launched, WhatWasWrittenAndNotPlayedBeforeASignalIsNotCalledSilence) {
    const tqtest::ProgramEnd run = recorded({TQ_FAULT_PLAYER, "kill"}, false);
    EXPECT_EQ(run.code, 128 + SIGKILL) << run.text();
    EXPECT_THAT(run.errors, testing::HasSubstr("it was ended by signal 9 (Killed)"));
    EXPECT_THAT(run.errors, testing::HasSubstr("was not played before the end: "));
    EXPECT_THAT(run.errors, testing::Not(testing::HasSubstr("all that it played was silence")));
}

TEST_F(Launched, OneThatMayOpenNoMoreFilesIsToldTheReason) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer opens files of its own";
#endif
    for (const char* const limit : {"4", "6"}) {
        // Whoever runs the test may have left descriptors open.
        const tqtest::ProgramEnd run =
            recorded({"sh", "-c",
                      std::string("exec 3>&- 4>&- 5>&- 6>&-; ulimit -n ") + limit + "; exec " +
                          TQ_FAULT_PLAYER});
        EXPECT_THAT(run.errors, testing::HasSubstr("its limit of open files is used up"));
        EXPECT_THAT(run.errors, testing::Not(testing::HasSubstr("--ring")));
    }
}

TEST_F(Launched, OneThatASignalEndsBeforeItIsRecordedIsToldTheReason) {
    const tqtest::ProgramEnd run = recorded({TQ_FAULT_EARLY_DEATH}, false);
    EXPECT_EQ(run.code, 128 + SIGKILL) << run.text();
    EXPECT_THAT(run.errors, testing::HasSubstr("it was ended by signal 9 (Killed)"));
    EXPECT_THAT(run.errors, testing::Not(testing::HasSubstr("statically linked")));
}

}  // namespace
