// How a recording ends: by itself, by signals, by a kill, by a full disk.

#include <sys/mount.h>
#include <random>

#include "RecorderFixture.h"

namespace tqrecorder::test {
namespace {

TEST_F(RecorderTest, EndsAfterItsDuration) {
    const ProgramEnd outcome = run({"-q", "-o", folder_.file("out.wav"), "-d", "1.5"}, game("60"));
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    const RecordedFile recorded(folder_.file("out.wav"));
    EXPECT_GT(recorded.frames(), 44100U / 2);
    EXPECT_LT(recorded.frames(), 44100U * 4);
}

TEST_F(RecorderTest, GivesTheCommandsExitCode) {
    EXPECT_EQ(run({"-q"}, {TQ_GAME_HOST, "--no-such-option"}).code,
              run({"-q", "--no-arm"}, {TQ_GAME_HOST, "--no-such-option"}).code);
    EXPECT_NE(run({"-q"}, {TQ_GAME_HOST, "--no-such-option"}).code, 0);
}

TEST_F(RecorderTest, AReaderThatGoesAwayEndsTheRecordingQuietly) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ProgramSetup with = setup({"-o", "-"}, game("60"));
    with.output = ends[1];
    Program program(with);
    close(ends[1]);
    std::array<char, 20'000> some{};
    std::size_t got = 0;
    for (ssize_t count = 0;
         got < some.size() && (count = read(ends[0], some.data() + got, some.size() - got)) > 0;) {
        got += static_cast<std::size_t>(count);
    }
    close(ends[0]);
    EXPECT_EQ(got, some.size());
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0);
    EXPECT_THAT(end.errors, HasSubstr("standard output was closed by its reader"));
}

TEST_F(RecorderTest, AKilledRecorderLeavesAPlayableFileAndTheHostPlaysOn) {
    const std::string path = folder_.file("out.wav");
    Program program(setup({"-q", "-o", path}, game("8")));
    // Two seconds of sound, as the header on the disk tells.
    ASSERT_TRUE(eventually([&] { return RecordedFile(path).frames() > 88'200; }));
    const std::vector<pid_t> hosts = program.children();
    ASSERT_EQ(hosts.size(), 1U);
    program.signal(SIGKILL);
    EXPECT_EQ(program.wait().signal, SIGKILL);
    expectMusic(path, 44100, 1.9);
    EXPECT_TRUE(isAlive(hosts[0]));
    kill(hosts[0], SIGKILL);
}

TEST_F(RecorderTest, AKilledRecorderLeavesNothingOfItsPictureAndReport) {
    const std::string path = folder_.file("out.wav");
    Program program(setup({"-q", "-o", path, "--picture", folder_.file("out.png"), "--report",
                           folder_.file("out.html")},
                          game("60")));
    ASSERT_TRUE(eventually([&] { return RecordedFile(path).frames() > 22'050; }));
    const std::vector<pid_t> hosts = program.children();
    program.signal(SIGKILL);
    EXPECT_EQ(program.wait().signal, SIGKILL);
    for (const pid_t host : hosts) {
        kill(host, SIGKILL);
    }
    EXPECT_THAT(folder_.names(), testing::ElementsAre("cache", "out.wav"));
}

TEST_F(RecorderTest, AKilledHostLeavesCompleteFiles) {
    const std::string path = folder_.file("out.wav");
    Program program(setup({"-q", "-o", path, "--tracks", folder_.file("tracks")}, game("8")));
    ASSERT_TRUE(eventually([&] { return RecordedFile(path).frames() > 88'200; }));
    const std::vector<pid_t> hosts = program.children();
    ASSERT_EQ(hosts.size(), 1U);
    kill(hosts[0], SIGKILL);
    EXPECT_EQ(program.wait().code, 128 + SIGKILL);
    expectMusic(path, 44100, 1.9);
}

class RecorderSignalTest : public RecorderTest, public testing::WithParamInterface<unsigned> {};

TEST_P(RecorderSignalTest, EveryFileIsReadableAfterAnInterrupt) {
    std::mt19937 random(GetParam());
    const std::array<std::string, 5> formats{"wav", "w64", "flac", "ogg", "opus"};
    for (std::size_t round = 0; round < 10; ++round) {
        const std::string path = folder_.file("out." + formats.at(round % formats.size()));
        Program program(setup({"-q", "-o", path}, game("30")));
        std::this_thread::sleep_for(
            std::chrono::milliseconds{std::uniform_int_distribution<int>(0, 900)(random)});
        // Before it can hear signals it is an ordinary process that they end.
        const bool begun = std::filesystem::exists(path);
        program.signal(SIGINT);
        const ProgramEnd end = program.wait();
        if (begun) {
            EXPECT_TRUE(end.code == 0 || end.code == 2) << end.code << end.errors;
            EXPECT_TRUE(RecordedFile(path).opened) << path << " round " << round;
        }
        std::filesystem::remove(path);
    }
}

INSTANTIATE_TEST_SUITE_P(TenTimes, RecorderSignalTest, testing::Range(1U, 6U));

/// The interrupt key of a terminal reaches the recorder and its host alike.
class RecorderTerminalTest : public RecorderTest {
  protected:
    [[nodiscard]] ProgramSetup inTerminal(ProgramSetup setup) const {
        setup.terminal = &terminal_;
        return setup;
    }
    void pressInterrupt() const { ASSERT_TRUE(terminal_.type("\x03")); }

    Terminal terminal_{24, 80};
};

TEST_F(RecorderTerminalTest, TheInterruptKeyEndsRecordingAndHost) {
    const std::string path = folder_.file("out.wav");
    Program program(inTerminal(setup({"-q", "-o", path}, game("8"))));
    ASSERT_TRUE(eventually([&] { return RecordedFile(path).frames() > 88'200; }));
    const std::vector<pid_t> hosts = program.children();
    ASSERT_EQ(hosts.size(), 1U);
    pressInterrupt();
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_FALSE(isAlive(hosts[0]));
    expectMusic(path, 44100, 1.9);
}

TEST_F(RecorderTerminalTest, TheInterruptKeyIsNoFailureWhereTheHostEndsFirst) {
    const std::string path = folder_.file("out.wav");
    Program program(inTerminal(setup({"-q", "-o", path}, {TQ_TONE_HOST, "tone", "30"})));
    ASSERT_TRUE(eventually([&] { return RecordedFile(path).frames() > 44'100; }));
    program.signal(SIGSTOP);
    pressInterrupt();
    // The host dies of it meanwhile.
    std::this_thread::sleep_for(std::chrono::milliseconds{500});
    program.signal(SIGCONT);
    EXPECT_EQ(program.wait().code, 0);
}

TEST_F(RecorderTerminalTest, TheInterruptKeyLeavesAHostThatIsToGoOnAlone) {
    const std::string path = folder_.file("out.wav");
    Program program(inTerminal(setup({"-q", "--host-goes-on", "-o", path}, game("8"))));
    ASSERT_TRUE(eventually([&] { return RecordedFile(path).frames() > 88'200; }));
    const std::vector<pid_t> hosts = program.children();
    ASSERT_EQ(hosts.size(), 1U);
    pressInterrupt();
    EXPECT_EQ(program.wait().code, 0);
    expectMusic(path, 44100, 1.9);
    EXPECT_TRUE(isAlive(hosts[0]));
    kill(hosts[0], SIGKILL);
}

TEST_F(RecorderTerminalTest, AHostThatIsToGoOnIsNotStoppedByTheTerminal) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's run-time cannot be loaded into the shell and its stty";
#endif
    const std::string path = folder_.file("out.wav");
    // What changes the terminal, or reads from it, is stopped where it is not in the foreground.
    std::vector<std::string> command{"sh", "-c",
                                     "stty -echo </dev/tty; read line </dev/tty; \"$@\"", "sh"};
    const std::vector<std::string> host = game("60");
    command.insert(command.end(), host.begin(), host.end());
    Program program(inTerminal(setup({"-q", "--host-goes-on", "-o", path, "--"}, command)));
    ASSERT_TRUE(eventually([&] { return RecordedFile(path).frames() > 44'100; }));
    const std::vector<pid_t> hosts = program.children();
    ASSERT_EQ(hosts.size(), 1U);
    pressInterrupt();
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_TRUE(isAlive(hosts[0]));
    killpg(hosts[0], SIGKILL);
}

TEST_F(RecorderTest, AFullDiskIsOneLineAndTheOtherOutputsGoOn) {
    const std::string disk = folder_.file("disk");
    std::filesystem::create_directory(disk);
    if (mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=128k") != 0) {
        GTEST_SKIP() << "only root can mount a small disk";
    }
    const ProgramEnd outcome =
        run({"-o", disk + "/out.wav", "--events", folder_.file("events.jsonl"), "--tracks",
             folder_.file("tracks")},
            game("3"));
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("out.wav: No space left on device"));
    const RecordedFile recorded(disk + "/out.wav");
    EXPECT_TRUE(recorded.opened);
    EXPECT_GT(recorded.frames(), 25'000U);
    EXPECT_EQ(static_cast<std::size_t>(recorded.info.frames), recorded.frames());
    umount(disk.c_str());
    EXPECT_FALSE(std::filesystem::is_empty(folder_.file("tracks")));
    EXPECT_THAT(contentOf(folder_.file("events.jsonl")), HasSubstr("audio unit start"));
}

TEST_F(RecorderTest, ALimitOfFileSizesEndsTheFileAndNotTheRecorder) {
    const std::string path = folder_.file("out.wav");
    std::vector<std::string> command{"sh", "-c",
                                     "ulimit -S -f unlimited; ulimit -c 0;"
                                     "sh -c 'kill -s XFSZ $$'; echo end=$?; exec \"$0\" \"$@\""};
    const std::vector<std::string> host = game("2");
    command.insert(command.end(), host.begin(), host.end());
    ProgramSetup limited = setup({"-o", path, "--"}, command);
    limited.arguments.insert(limited.arguments.begin(),
                             {"sh", "-c", "ulimit -S -f 128; exec \"$0\" \"$@\""});
    const ProgramEnd end = tqtest::runProgram(limited);
    EXPECT_EQ(end.code, 2) << "signal " << end.signal << "\n" << end.text();
    EXPECT_THAT(end.errors, HasSubstr("out.wav: File too large"));
    EXPECT_EQ(end["end"], std::to_string(128 + SIGXFSZ)) << "the command has the default";
    EXPECT_GT(RecordedFile(path).frames(), 10'000U);
}

}  // namespace
}  // namespace tqrecorder::test
