// Commands that start the game in the background and end before it.

#include <algorithm>
#include <csignal>
#include <fstream>
#include <set>
#include <sstream>

#include "RecorderFixture.h"
#include "session/ProcessTree.h"

namespace tqrecorder::test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

class RecorderTreeTest : public RecorderTest {
  protected:
    [[nodiscard]] static std::vector<std::string> launcher(const std::string& how,
                                                           const std::string& seconds,
                                                           const std::string& tone) {
        return {TQ_LAUNCHER_HOST, how, seconds, "0", TQ_TONE_HOST, "tone", tone};
    }
    /// Whether so much of the tone was recorded. A busy machine may leave holes in it.
    void expectTone(double seconds) const {
        constexpr double kPiece = 0.02;
        const RecordedFile recorded(path_);
        ASSERT_TRUE(recorded.opened);
        const double length = static_cast<double>(recorded.frames()) / 44100;
        int pieces = 0;
        for (double from = 0; from + kPiece < length; from += kPiece) {
            pieces += recorded.amplitude(700, from, from + kPiece) > 0.4 ? 1 : 0;
        }
        EXPECT_GT(pieces * kPiece, 0.7 * seconds) << "of " << length << " s";
    }
    [[nodiscard]] bool hasPlayed(double seconds) const {
        return static_cast<double>(RecordedFile(path_).frames()) > seconds * 44100;
    }
    /// The game below that recorder; 0 where there is none.
    [[nodiscard]] static pid_t gameOf(const Program& recorder) {
        for (const pid_t child : childrenOf("/proc", recorder.pid())) {
            std::ifstream file("/proc/" + std::to_string(child) + "/comm");
            std::string name;
            if (file >> name && name == "recorded_host") {
                return child;
            }
        }
        return 0;
    }
    /// Whether both have mapped the memory that they share.
    [[nodiscard]] static bool isConnected(pid_t game, pid_t recorder) {
        const auto mapped = [](pid_t process) {
            std::set<std::string> files;
            std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
            for (std::string line; std::getline(maps, line);) {
                std::istringstream fields(line);
                std::string addresses, access, offset, device, number, path;
                fields >> addresses >> access >> offset >> device >> number >> path;
                if (path == kSharedMemory) {
                    files.insert(number);
                }
            }
            return files;
        };
        const std::set<std::string> ours = mapped(recorder);
        const std::set<std::string> its = mapped(game);
        return std::any_of(its.begin(), its.end(),
                           [&](const std::string& number) { return ours.contains(number); });
    }
    static constexpr const char* kSharedMemory = "/memfd:tqaudiorecord";
    const std::string path_ = folder_.file("out.wav");
};

/// One that has ended before, and one that still plays its silence.
TEST_F(RecorderTreeTest, ALauncherThatIsSilentLeavesTheNamesToTheGame) {
    const std::string host = TQ_TONE_HOST;
    for (const std::string& script :
         {host + " silent 0.5; " + host + " tone 2",
          host + " silent 60 & sleep 2; " + host + " tone 2; kill $!; wait"}) {
        SCOPED_TRACE(script);
        TemporaryFolder folder;
        const ProgramEnd end =
            run({"-o", folder.file("out.wav"), "--tracks", folder.file("tracks")},
                {"sh", "-c", script});
        EXPECT_EQ(end.code, 0) << end.errors;
        EXPECT_GT(RecordedFile(folder.file("out.wav")).amplitude(700, 0.5, 1), 0.3) << end.errors;
        // Both are of one name, which the game had as well before it sounded.
        EXPECT_THAT(end.errors, testing::ContainsRegex("out-recorded_host(-2)?.wav \\("));
        EXPECT_GT(RecordedFile(folder.file("tracks/track-1-unit-1.wav")).amplitude(700, 0.5, 1),
                  0.3);
    }
}

class RecorderLauncherTest : public RecorderTreeTest,
                             public testing::WithParamInterface<std::string> {};

TEST_P(RecorderLauncherTest, WhatItLeavesIsRecordedToItsEnd) {
    const ProgramEnd end = run({"-o", path_}, launcher(GetParam(), "0", "3"));
    EXPECT_EQ(end.code, 0) << end.errors;
    expectTone(3);
    EXPECT_THAT(end.errors, HasSubstr("COMMAND has ended; the recording goes on with "
                                      "recorded_host ("));
    EXPECT_THAT(end.errors, Not(HasSubstr("ran on when")));
}

TEST_P(RecorderLauncherTest, WhatLoadsForAWhileIsWaitedFor) {
    const ProgramEnd end = run({"-o", path_}, launcher(GetParam(), "2.5", "1"));
    EXPECT_EQ(end.code, 0) << end.errors;
    expectTone(1);
    EXPECT_THAT(end.errors, HasSubstr("may play yet"));
}

TEST_P(RecorderLauncherTest, TheEndOfTheRecordingEndsWhatItLeft) {
    Program program(setup({"-q", "-o", path_}, launcher(GetParam(), "0", "60")));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.5) && gameOf(program) != 0; }));
    const pid_t game = gameOf(program);
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_FALSE(isAlive(game));
}

INSTANTIATE_TEST_SUITE_P(Ways, RecorderLauncherTest, testing::Values("child", "session", "daemon"));

TEST_F(RecorderTreeTest, TheInterruptKeyEndsAGameThatTheKeyDoesNotReach) {
    const Terminal terminal(24, 80);
    ProgramSetup with = setup({"-q", "-o", path_}, launcher("session", "0", "60"));
    with.terminal = &terminal;
    Program program(with);
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.5) && gameOf(program) != 0; }));
    const pid_t game = gameOf(program);
    ASSERT_TRUE(terminal.type("\x03"));
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_FALSE(isAlive(game));
}

TEST_F(RecorderTreeTest, TheInterruptKeyEndsAGameThatStillLoadsAsWell) {
    const Terminal terminal(24, 80);
    ProgramSetup with = setup({"-q", "-o", path_}, {TQ_LAUNCHER_HOST, "session", "0", "0",
                                                    TQ_TONE_HOST, "loading", "60"});
    with.terminal = &terminal;
    Program program(with);
    pid_t game = 0;
    ASSERT_TRUE(eventually(
        [&] { return (game = gameOf(program)) != 0 && isConnected(game, program.pid()); }));
    ASSERT_TRUE(terminal.type("\x03"));
    static_cast<void>(program.wait());
    // Who has not played is told to end, and not waited for.
    EXPECT_TRUE(eventually([&] { return !isAlive(game); }));
}

TEST_F(RecorderTreeTest, AGameThatTheInterruptKeyDoesNotReachIsToldOnce) {
    const Terminal terminal(24, 80);
    const std::string terms = folder_.file("terms");
    ProgramSetup with = setup({"-q", "-o", path_}, {TQ_LAUNCHER_HOST, "session", "0", "0",
                                                    TQ_TONE_HOST, "stubborn", "60", terms});
    with.terminal = &terminal;
    Program program(with);
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.5) && gameOf(program) != 0; }));
    const pid_t game = gameOf(program);
    ASSERT_TRUE(terminal.type("\x03"));
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_FALSE(isAlive(game));
    EXPECT_EQ(contentOf(terms), "T");
}

TEST_F(RecorderTreeTest, AGameThatTheSystemGivesNoDescriptorOfIsEndedAsWell) {
    ProgramSetup with = setup({"-q", "-o", path_}, launcher("session", "0", "60"));
    with.arguments.insert(with.arguments.begin(), TQ_OLD_KERNEL);
    Program program(with);
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.5) && gameOf(program) != 0; }));
    const pid_t game = gameOf(program);
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_FALSE(isAlive(game));
}

TEST_F(RecorderTreeTest, TheDurationEndsWhatALauncherLeft) {
    Program program(setup({"-q", "-o", path_, "-d", "3"}, launcher("daemon", "0", "60")));
    pid_t game = 0;
    ASSERT_TRUE(eventually([&] { return (game = gameOf(program)) != 0; }));
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_FALSE(isAlive(game));
}

TEST_F(RecorderTreeTest, TheExitCodeIsTheLaunchers) {
    std::vector<std::string> command = launcher("session", "0", "1");
    command[3] = "7";
    const ProgramEnd end = run({"-q", "-o", path_}, command);
    EXPECT_EQ(end.code, 7) << end.errors;
    expectTone(1);
}

TEST_F(RecorderTreeTest, WithTheCommandItEndsWhereThatIsAskedFor) {
    Program program(setup({"-o", path_, "--end-with", "command"},
                          {TQ_TONE_HOST, "run", TQ_LAUNCHER_HOST, "session", "0", "0", TQ_TONE_HOST,
                           "tone", "6", "--", TQ_TONE_HOST, "tone", "2"}));
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_THAT(end.errors, HasSubstr(") ran on when COMMAND had ended, and is recorded no "
                                      "further; leave --end-with command out"));
    EXPECT_LT(RecordedFile(path_).frames(), 5U * 44100);
}

TEST_F(RecorderTreeTest, WhatNeverPlaysIsNotWaitedForLong) {
    // The launcher's own wait is 60 s: as much as a daemon that never ends, for a recording of 1 s.
    const auto began = std::chrono::steady_clock::now();
    Program program(
        setup({"-o", path_}, {TQ_TONE_HOST, "run", TQ_LAUNCHER_HOST, "daemon", "60", "0",
                              TQ_TONE_HOST, "exit", "0", "--", TQ_TONE_HOST, "tone", "1"}));
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_GT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(55));
    EXPECT_THAT(end.errors, HasSubstr("may play yet, and is waited for, 20 seconds"));
    expectTone(1);
}

TEST_F(RecorderTreeTest, AGameThatLoadsForLongerIsWaitedForWhileItWorks) {
    const ProgramEnd end =
        run({"-o", path_}, {TQ_LAUNCHER_HOST, "session", "0", "0", TQ_TONE_HOST, "loading", "24"});
    EXPECT_EQ(end.code, 0) << end.errors;
    expectTone(1);
    EXPECT_THAT(end.errors, HasSubstr("seconds, and as long as it loads"));
}

TEST_F(RecorderTreeTest, OrphansThatEndLeaveNoZombies) {
    Program program(
        setup({"-q", "-o", path_}, {TQ_TONE_HOST, "run", TQ_LAUNCHER_HOST, "session", "0", "0",
                                    TQ_TONE_HOST, "exit", "0", "--", TQ_TONE_HOST, "tone", "30"}));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.5); }));
    // The command alone: what the launcher left has ended, and was a child of the recorder's then.
    EXPECT_TRUE(
        eventually([&] { return childrenOf("/proc", program.pid()).size() == std::size_t{1}; }));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().code, 0);
}

TEST_F(RecorderTreeTest, AnOrphanThatIsNoPlayerIsLeftAlone) {
    if (kIsSanitized) {
        GTEST_SKIP() << "a sanitizer's run-time cannot be loaded into the shell";
    }
    const std::string answer = folder_.file("maps");
    // It begins when its parent has gone, which makes it the recorder's own child.
    const ProgramEnd end =
        run({"-q", "-o", path_},
            {"sh", "-c",
             "setsid sh -c 'sleep 1; exec cat /proc/self/maps > \"$0\"' \"$0\" & exit 0", answer});
    const std::string maps = shell("cat " + answer);
    EXPECT_THAT(maps, HasSubstr("_gate.so")) << end.errors;
    EXPECT_THAT(maps, Not(HasSubstr("_tap.so")));
}

TEST_F(RecorderTreeTest, ShellsThatLeaveAProgramInTheBackgroundDoAsWell) {
    if (kIsSanitized) {
        GTEST_SKIP() << "a sanitizer's run-time cannot be loaded into the shell";
    }
    for (const std::string line :
         {"nohup \"$0\" tone 1 > /dev/null 2>&1 & exit 0", "setsid \"$0\" tone 1 & exit 0",
          "(\"$0\" tone 1 &) & exit 0", "(sleep 1; \"$0\" tone 1) & exit 0"}) {
        const ProgramEnd end = run({"--overwrite", "-o", path_}, {"sh", "-c", line, TQ_TONE_HOST});
        EXPECT_EQ(end.code, 0) << line << end.errors;
        expectTone(1);
    }
}

}  // namespace
}  // namespace tqrecorder::test
