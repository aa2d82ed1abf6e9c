// The real recorder on the real example host, without a sound server.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>

#include "examples/game_host/GameSounds.h"
#include "support/ProgramRunner.h"
#include "tools/tqaudiorecord/output/Sound.h"

namespace tqrecorder::test {
namespace {

using testing::HasSubstr;
using testing::Not;

using tqtest::eventually;
using tqtest::isAlive;
using tqtest::Program;
using tqtest::ProgramEnd;
using tqtest::ProgramSetup;
using tqtest::Terminal;

class RecorderTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(tqtest::makeGameSounds(sounds_)); }

    [[nodiscard]] ProgramSetup setup(std::vector<std::string> options,
                                     const std::vector<std::string>& command) const {
        ProgramSetup setup;
        setup.arguments = std::move(options);
        setup.arguments.insert(setup.arguments.begin(), TQ_RECORDER);
        setup.arguments.insert(setup.arguments.end(), command.begin(), command.end());
        setup.environment = {{"TQ_AUDIO_DEVICE", "null"},
                             {"XDG_CACHE_HOME", folder_.file("cache")}};
        return setup;
    }
    [[nodiscard]] std::vector<std::string> game(const std::string& seconds) const {
        return {TQ_GAME_HOST, "--quiet", "--seconds", seconds, "--sounds", sounds_.file("")};
    }
    [[nodiscard]] ProgramEnd run(std::vector<std::string> options,
                                 const std::vector<std::string>& command) const {
        return tqtest::runProgram(setup(std::move(options), command));
    }
    /// Whether the music can be heard in a recording, and for how long.
    static void expectMusic(const std::string& path, int rate, double shortest) {
        const RecordedFile recorded(path);
        ASSERT_TRUE(recorded.opened) << path;
        EXPECT_EQ(recorded.info.samplerate, rate);
        ASSERT_GT(static_cast<double>(recorded.frames()) / rate, shortest) << path;
        EXPECT_GT(recorded.amplitude(441, 0.3, shortest), 0.1) << path;
        EXPECT_LT(recorded.amplitude(3150, 0.3, shortest), 0.02) << path;
    }
    /// Runs a shell command and gives what it prints; empty where the tool is missing.
    static std::string shell(const std::string& command) {
        return tqtest::runProgram({.arguments = {"sh", "-c", command}}).text();
    }
    static bool hasTool(const std::string& name) { return !shell("command -v " + name).empty(); }

    TemporaryFolder folder_;
    TemporaryFolder sounds_;
};

class RecorderFormatTest : public RecorderTest, public testing::WithParamInterface<const char*> {};

TEST_P(RecorderFormatTest, WritesWhatOtherProgramsRead) {
    const std::string format = GetParam();
    const std::string path = folder_.file("out." + format);
    const ProgramEnd outcome = run({"-q", "-o", path}, game("3"));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "");
    const int rate = format == "opus" ? 48000 : 44100;
    expectMusic(path, rate, 2);
    if (format != "opus" && hasTool("sox")) {
        const std::string info = shell("sox --info " + path);
        EXPECT_THAT(info, HasSubstr("Channels       : 2"));
        EXPECT_THAT(info, HasSubstr("Sample Rate    : 44100"));
        EXPECT_THAT(info, Not(HasSubstr("WARN")));
    }
    if (hasTool("ffprobe")) {
        const double seconds = std::strtod(
            shell("ffprobe -v error -show_entries format=duration -of csv=p=0 " + path).c_str(),
            nullptr);
        const RecordedFile recorded(path);
        EXPECT_NEAR(seconds, static_cast<double>(recorded.frames()) / rate, 0.05);
        EXPECT_EQ(shell("ffmpeg -v error -i " + path + " -f null -"), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, RecorderFormatTest,
                         testing::Values("wav", "w64", "rf64", "flac", "ogg", "opus"),
                         [](const auto& format) { return std::string(format.param); });

TEST_F(RecorderTest, WritesTracksEventsAndAPicture) {
    const ProgramEnd outcome =
        run({"-o", folder_.file("mix.wav"), "--tracks", folder_.file("tracks"), "--events",
             folder_.file("events.jsonl"), "--picture", folder_.file("out.png")},
            game("4"));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    expectMusic(folder_.file("mix.wav"), 44100, 3);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.file("tracks"))) {
        names.push_back(entry.path());
    }
    std::sort(names.begin(), names.end());
    // The ambience is played by one unit and, later, by another.
    ASSERT_EQ(names.size(), 4U);
    EXPECT_THAT(names[0], HasSubstr("/track-1-unit-"));
    EXPECT_THAT(names[1], HasSubstr("/track-1-unit-"));
    const RecordedFile ambience(names[0]);
    EXPECT_EQ(ambience.info.samplerate, 22050);
    EXPECT_EQ(ambience.info.channels, 1);
    expectMusic(names[2], 48000, 3);
    const RecordedFile effects(names[3]);
    EXPECT_LT(effects.amplitude(441, 0.3, 2), 0.02);
    std::ifstream events(folder_.file("events.jsonl"));
    bool started = false;
    for (std::string line; std::getline(events, line);) {
        const auto event = nlohmann::json::parse(line);
        EXPECT_EQ(event["process"], "game_host");
        EXPECT_GT(event["host_time_us"], 0U);
        started = started || event["message"] == "audio unit start: 2";
    }
    EXPECT_TRUE(started);
    EXPECT_GT(std::filesystem::file_size(folder_.file("out.png")), 10'000U);
    for (const char* words : {"Recorded: game_host", "track 1", "22050 Hz", "peak -", "blocks lost",
                              "mix.wav (", "events.jsonl", "out.png"}) {
        EXPECT_THAT(outcome.errors, HasSubstr(words));
    }
    // Nothing hidden stays beside the picture.
    EXPECT_THAT(folder_.names(), Not(testing::Contains(testing::StartsWith(".out.png"))));
}

TEST_F(RecorderTest, ShowsALineOfNumbersASecondWhereThereIsNoTerminal) {
    const ProgramEnd outcome = run({}, game("3"));
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.errors, HasSubstr(" s  game_host  mix -"));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("\033")));
}

TEST_F(RecorderTest, ShowsAMeterOnATerminal) {
    Terminal terminal(30, 100);
    ProgramSetup with = setup({}, game("3"));
    with.errors = terminal.programEnd();
    Program program(with);
    const std::string text = terminal.readToEnd();
    EXPECT_EQ(program.wait().code, 0);
    for (const char* words :
         {"dBFS", "  mix ", "  track 1 ", "[#", "\033[K", "A", "ring ", "Recorded: game_host"}) {
        EXPECT_THAT(text, HasSubstr(words));
    }
    // The last that is redrawn is erased before the summary comes.
    const std::size_t summary = text.find("Recorded: game_host");
    EXPECT_EQ(text.find('\033', summary), std::string::npos);
    EXPECT_EQ(text.substr(summary - 3, 3), "\033[J");
}

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

TEST_F(RecorderTest, FindsAPathThatCannotBeWrittenBeforeTheHostStarts) {
    for (const char* option : {"-o", "--tracks", "--events", "--picture"}) {
        const ProgramEnd outcome = run({option, "/proc/no/out.wav"}, game("60"));
        EXPECT_EQ(outcome.code, 2) << option;
        EXPECT_THAT(outcome.errors, testing::StartsWith("tqaudiorecord: /proc/no"));
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1)
            << outcome.errors;
    }
}

TEST_F(RecorderTest, DoesNotWaitForTheReaderOfANamedPipe) {
    const std::string pipe = folder_.file("pipe.raw");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const char* option : {"-o", "--events", "--picture"}) {
        const ProgramEnd outcome = run({option, pipe}, game("60"));
        EXPECT_EQ(outcome.code, 2) << option;
        EXPECT_THAT(outcome.errors, HasSubstr("only --output - writes into one")) << option;
    }
}

TEST_F(RecorderTest, FindsThatTwoOutputsAreOneFile) {
    const std::string path = folder_.file("out.wav");
    const std::string link = folder_.file("link.wav");
    std::filesystem::create_symlink("out.wav", link);
    const ProgramEnd outcome = run({"-o", path, "--events", link}, game("60"));
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("are the same file"));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(RecorderTest, AStartThatFailsKeepsTheRecordingOfBefore) {
    const std::string path = folder_.file("out.wav");
    std::ofstream(path) << "before";
    EXPECT_EQ(run({"-o", path, "--events", "/proc/no/events"}, game("60")).code, 2);
    EXPECT_EQ(contentOf(path), "before");
}

TEST_F(RecorderTest, AHostUnderALimitOfFileSizesPlaysOn) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's run-time cannot be loaded into the shell";
#endif
    // Memory that is shared counts as a file.
    const ProgramEnd outcome =
        run({"-q"}, {"/bin/sh", "-c",
                     "ulimit -f 200; exec " + game("1")[0] + " --quiet --seconds 1 --sounds " +
                         sounds_.file("")});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("no memory to share with the recorder"));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("was not loaded")));
}

TEST_F(RecorderTest, SaysWhyItIsSilentEvenWhenItIsToBeQuiet) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's run-time cannot be loaded into the shell";
#endif
    const ProgramEnd outcome =
        run({"-q", "-o", folder_.file("out.wav")}, {"/bin/sh", "-c", "exit 0"});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.errors, "");
}

TEST_F(RecorderTest, SaysInOneLineWhatIsWrongWithItsArguments) {
    const ProgramEnd outcome = run({"--bogus"}, game("60"));
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors,
              "tqaudiorecord: there is no option --bogus; try tqaudiorecord --help\n");
}

TEST_F(RecorderTest, SaysThatACommandIsNotThere) {
    const ProgramEnd outcome = run({"-o", folder_.file("out.wav")}, {"/no/such/program"});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("/no/such/program"));
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
    // What was there before stays.
    EXPECT_FALSE(std::filesystem::exists(folder_.file("out.wav")));
}

TEST_F(RecorderTest, AReaderOfTheStandardOutputGetsAWavFile) {
    if (!hasTool("sox")) {
        GTEST_SKIP() << "sox is not installed";
    }
    const std::string wav = folder_.file("piped.wav");
    ProgramSetup with = setup({"-q", "-o", "-"}, game("3"));
    std::string line;
    for (const std::string& word : with.arguments) {
        line += "'" + word + "' ";
    }
    with.arguments = {"sh", "-c", line + " | sox --ignore-length -t wav - " + wav};
    Program program(with);
    const ProgramEnd end = program.wait();
    ASSERT_EQ(end.code, 0) << end.errors;
    expectMusic(wav, 44100, 2);
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

TEST_F(RecorderTest, AUserSignalSavesTheReplay) {
    Program program(setup({"-q", "-o", folder_.file("replay.wav"), "--replay", "20", "--events",
                           folder_.file("events.jsonl")},
                          game("30")));
    ASSERT_TRUE(eventually([&] {
        return contentOf(folder_.file("events.jsonl")).find("audio unit start: 2") !=
               std::string::npos;
    }));
    std::this_thread::sleep_for(std::chrono::milliseconds{1500});
    program.signal(SIGUSR1);
    ASSERT_TRUE(eventually(
        [&] { return RecordedFile(folder_.file("replay-001.wav")).info.frames > 22'050; }));
    std::this_thread::sleep_for(std::chrono::milliseconds{700});
    program.signal(SIGUSR1);
    ASSERT_TRUE(eventually(
        [&] { return RecordedFile(folder_.file("replay-002.wav")).info.frames > 4'410; }));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_FALSE(std::filesystem::exists(folder_.file("replay-003.wav")));
    EXPECT_FALSE(std::filesystem::exists(folder_.file("replay.wav")));
}

TEST_F(RecorderTest, SplitsALongRecording) {
    const ProgramEnd outcome =
        run({"-q", "-o", folder_.file("out.wav"), "--max-file-time", "1"}, game("3"));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(RecordedFile(folder_.file("out-001.wav")).frames(), 44100U);
    EXPECT_EQ(RecordedFile(folder_.file("out-002.wav")).frames(), 44100U);
    EXPECT_FALSE(std::filesystem::exists(folder_.file("out.wav")));
}

TEST_F(RecorderTest, SaysThatTheGuardKeptTheHooksOutAndHowToArmIt) {
    const ProgramEnd outcome = run({"--no-arm", "-o", folder_.file("out.wav")}, game("1"));
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("crash guard"));
    EXPECT_THAT(outcome.errors, HasSubstr("tqaudiorecord guard arm"));
}

}  // namespace
}  // namespace tqrecorder::test
