// A recording that is controlled while it runs.

#include <sys/stat.h>

#include <filesystem>
#include <regex>

#include "ControlledRecorder.h"

namespace tqrecorder::test {
namespace {

using RecorderControlTest = ControlledRecorderTest;

TEST_F(RecorderControlTest, ASaveSaysItsFilesAndTwoAreBothWhole) {
    Program program(reachable(
        setup({"-o", path_, "--replay", "1", "--tracks", folder_.file("tracks")}, game("30"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(1.5); }));
    const ProgramEnd first = ctl({"save"});
    EXPECT_EQ(first.code, 0) << first.errors;
    EXPECT_THAT(first.output, testing::StartsWith(folder_.file("out-001.wav") +
                                                  " (44100 Hz, 16-bit integer, stereo, 1.00 s)\n"));
    EXPECT_THAT(first.output, HasSubstr(folder_.file("tracks/track-")));
    EXPECT_EQ(ctl({"save", "0.5"}).code, 0);
    EXPECT_EQ(ctl({"save"}).code, 0);
    EXPECT_EQ(RecordedFile(folder_.file("out-001.wav")).frames(), 44'100U);
    EXPECT_EQ(RecordedFile(folder_.file("out-002.wav")).frames(), 22'050U);
    EXPECT_EQ(RecordedFile(folder_.file("out-003.wav")).frames(), 44'100U);
    EXPECT_THAT(program.errors(),
                HasSubstr("tqaudiorecord: saved " + folder_.file("out-001.wav") + " ("));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().code, 0);
}

/// The recorder has a file system of its own, which the test does not see: the shell lists it.
TEST_F(RecorderControlTest, OnAFullDiskASaveSaysSoLeavesNoPartAndAShorterOneFindsRoom) {
    const std::string small = folder_.file("small");
    std::filesystem::create_directory(small);
    if (tqtest::runProgram({.arguments = {"unshare", "-rm", "mount", "-t", "tmpfs", "none", small}})
            .code != 0) {
        GTEST_SKIP() << "nothing may be mounted here";
    }
    for (const std::string kind : {"wav", "mka"}) {
        SCOPED_TRACE(kind);
        ProgramSetup setup = reachable(this->setup(
            {"-o", "clip." + kind, "--format", kind == "mka" ? "mka-pcm" : kind, "--replay", "30"},
            {TQ_TONE_HOST, "tone", "60"}));
        setup.arguments.insert(setup.arguments.begin(),
                               {"unshare", "-rm", "sh", "-c",
                                "mount -t tmpfs -o size=300k none \"$0\" && cd \"$0\" && \"$@\"; "
                                "code=$?; ls; exit $code",
                                small});
        Program program(setup);
        ASSERT_TRUE(eventually([&] { return hasPlayed(3); }));
        const ProgramEnd full = ctl({"save"});
        EXPECT_EQ(full.code, 2);
        EXPECT_EQ(full.errors, "tqaudiorecord: clip-001." + kind +
                                   ": No space left on device; the file ends there; what was "
                                   "written of it is removed\n");
        const ProgramEnd shorter = ctl({"save", "0.2"});
        EXPECT_EQ(shorter.code, 0) << shorter.errors;
        EXPECT_THAT(shorter.output, testing::StartsWith("clip-001." + kind + " ("));
        EXPECT_EQ(ctl({"stop"}).code, 0);
        const ProgramEnd end = program.wait();
        EXPECT_EQ(end.code, 2) << "what was asked for was lost";
        EXPECT_EQ(end.output, "clip-001." + kind + "\n");
    }
}

TEST_F(RecorderControlTest, APauseIsNotInTheFilesAndNoHole) {
    Program program(reachable(setup({"-o", path_}, game("30"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(1); }));
    ASSERT_EQ(ctl({"pause"}).output.substr(0, 7), "paused\n");
    EXPECT_EQ(ctl({"pause"}).code, 2);
    const auto frames = [&] { return RecordedFile(path_).frames(); };
    std::size_t before = 0;
    ASSERT_TRUE(eventually([&] {
        const std::size_t last = std::exchange(before, frames());
        std::this_thread::sleep_for(std::chrono::milliseconds{1000});
        return before == last;
    })) << "what was played before the pause is written by then";
    std::this_thread::sleep_for(std::chrono::milliseconds{1500});
    EXPECT_EQ(frames(), before);
    EXPECT_THAT(ctl({"status"}).output, HasSubstr("  paused\n"));
    program.signal(SIGUSR2);
    ASSERT_TRUE(eventually([&] { return frames() > before + 44'100; }));
    const ProgramEnd stop = ctl({"stop"});
    EXPECT_EQ(stop.code, 0) << stop.errors;
    EXPECT_THAT(stop.output, testing::StartsWith(path_ + " (44100 Hz"));
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0);
    // A busy machine makes holes of its own, and none as long as the pause.
    std::smatch gap;
    if (std::regex_search(end.errors, gap, std::regex("filled with silence \\(([0-9.]+) s"))) {
        EXPECT_LT(std::stod(gap[1]), 2.0) << end.errors;
    }
    EXPECT_THAT(end.errors, HasSubstr("tqaudiorecord: the recording goes on\n"));
    EXPECT_THAT(end.errors, HasSubstr("  PAUSED  ")) << "in the meter";
    EXPECT_THAT(end.errors, HasSubstr("\nPaused for "));
}

TEST_F(RecorderControlTest, WhatIsPlayedInAPauseAloneIsNotCalledSilence) {
    std::vector<std::string> late{
        "sh", "-c", "until [ -e \"$0\" ]; do sleep 0.05; done; exec \"$@\"", folder_.file("go")};
    const std::vector<std::string> words = game("1");
    late.insert(late.end(), words.begin(), words.end());
    Program program(reachable(setup({"-o", path_}, late)));
    ASSERT_TRUE(eventually([&] { return ctl({"pause"}).code == 0; }));
    std::ofstream(folder_.file("go")) << "go";
    EXPECT_THAT(program.wait().errors,
                HasSubstr("Silent: what was played was played while the recording was paused\n"));
}

TEST_F(RecorderControlTest, ASplitGoesOnInTheNextFileWithoutAFrameLost) {
    Program program(
        reachable(setup({"-q", "-o", path_, "--tracks", folder_.file("tracks")}, game("30"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(1); }));
    const ProgramEnd split = ctl({"split"});
    EXPECT_EQ(split.code, 0) << split.errors;
    EXPECT_THAT(split.output, testing::StartsWith(path_ + " ("));
    EXPECT_THAT(split.output, HasSubstr(folder_.file("tracks/track-")));
    ASSERT_TRUE(eventually([&] { return hasPlayed(2); }));
    const ProgramEnd stop = ctl({"--pid", std::to_string(program.pid()), "stop"});
    EXPECT_THAT(stop.output, HasSubstr(folder_.file("out-002.wav") + " ("));
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_GT(RecordedFile(path_).frames(), 40'000U);
    EXPECT_GT(RecordedFile(folder_.file("out-002.wav")).frames(), 30'000U);
}

TEST_F(RecorderControlTest, NothingIsSplitOrSavedBeforeThereIsSound) {
    Program program(reachable(setup({"-q", "-o", path_}, {"sleep", "60"})));
    ASSERT_TRUE(eventually([&] { return ctl({"status"}).code == 0; }));
    EXPECT_THAT(ctl({"split"}).errors, HasSubstr("no file has any sound yet"));
    EXPECT_THAT(ctl({"save"}).errors, HasSubstr("nothing is kept to be saved"));
    EXPECT_EQ(ctl({"stop"}).code, 0);
    EXPECT_EQ(program.wait().code, 2);
}

TEST_F(RecorderControlTest, AReplayHasNoFileToSplitAndASignalWithoutOneIsAnswered) {
    Program program(reachable(setup({"-o", path_, "--replay", "5"}, {"sleep", "60"})));
    ASSERT_TRUE(eventually([&] { return ctl({"status"}).code == 0; }));
    EXPECT_THAT(ctl({"split"}).errors, HasSubstr("no file under way that could be split"));
    EXPECT_EQ(ctl({"stop"}).code, 0);
    (void)program.wait();
    Program without(reachable(setup({"-o", path_}, {"sleep", "60"})));
    ASSERT_TRUE(eventually([&] { return ctl({"status"}).code == 0; }));
    without.signal(SIGUSR1);
    EXPECT_TRUE(eventually(
        [&] { return without.errors().find("nothing is kept to be saved") != std::string::npos; }));
    EXPECT_EQ(ctl({"stop"}).code, 0);
    (void)without.wait();
}

TEST_F(RecorderControlTest, SilenceAloneIsNotSplit) {
    Program program(reachable(setup({"-q", "-o", path_}, {TQ_TONE_HOST, "silent", "60"})));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.5); }));
    const ProgramEnd split = ctl({"split"});
    EXPECT_EQ(split.code, 2) << split.output;
    EXPECT_THAT(split.errors, HasSubstr("no file has any sound yet"));
    EXPECT_EQ(ctl({"stop"}).code, 0);
    (void)program.wait();
    EXPECT_FALSE(std::filesystem::exists(folder_.file("out-002.wav")));
}

TEST_F(RecorderControlTest, DuckingComesAndGoes) {
    constexpr double kPiece = 0.5;
    /// Of the track's last half second so far.
    const auto level = [&] {
        for (const auto& entry : std::filesystem::directory_iterator(folder_.file("tracks"))) {
            const RecordedFile file(entry.path());
            const double end =
                file.opened ? static_cast<double>(file.frames()) / file.info.samplerate : 0;
            return end < kPiece ? 0.0 : file.amplitude(700, end - kPiece, end);
        }
        return 0.0;
    };
    const auto isFull = [&] { return std::abs(level() - 0.5) < 0.05; };
    Program program(
        reachable(setup({"-q", "--tracks", folder_.file("tracks")}, {TQ_TONE_HOST, "tone", "60"})));
    ASSERT_TRUE(eventually([&] { return hasPlayed(1) && isFull(); })) << level();
    EXPECT_EQ(ctl({"duck", "3"}).code, 2);
    EXPECT_EQ(ctl({"duck", "-40"}).output, "ducked\n");
    EXPECT_TRUE(eventually([&] { return level() < 0.05; })) << level();
    EXPECT_EQ(ctl({"unduck"}).output, "not ducked any more\n");
    EXPECT_TRUE(eventually(isFull)) << level();
    EXPECT_EQ(ctl({"stop"}).code, 0);
    EXPECT_EQ(program.wait().code, 0);
}

TEST_F(RecorderControlTest, OnlyTheUserReachesItAndIsToldWhereNobodyIs) {
    EXPECT_THAT(ctl({"status"}).errors, HasSubstr("no recorder is running"));
    Program first(reachable(setup({"-q", "-o", path_}, game("30"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.1); }));
    struct stat status {};
    ASSERT_EQ(stat(folder_.file("tqaudiorecord").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    Program second(reachable(setup({"-q", "-o", folder_.file("b.wav")}, game("30"))));
    ASSERT_TRUE(eventually(
        [&] { return ctl({"status"}).errors.find("several recorders") != std::string::npos; }));
    EXPECT_EQ(ctl({"--pid", std::to_string(first.pid()), "save"}).code, 2);
    ASSERT_TRUE(eventually([&] {
        return hasPlayed(0.1, {"--pid", std::to_string(second.pid())});
    }));
    first.signal(SIGKILL);
    (void)first.wait();
    // What a killed one left is no recorder.
    EXPECT_EQ(ctl({"stop"}).code, 0);
    EXPECT_EQ(second.wait().code, 0);
    EXPECT_TRUE(std::filesystem::is_empty(folder_.file("tqaudiorecord")));
}

TEST_F(RecorderControlTest, AListHasTheTracksOfEveryRecorder) {
    const auto list = [&] { return tqtest::runProgram(reachable(setup({"--list"}, {}))); };
    EXPECT_EQ(list().code, 2);
    EXPECT_THAT(list().errors, HasSubstr("no recorder is running"));
    const Program first(reachable(setup({"-q", "-o", path_}, {TQ_TONE_HOST, "tone", "60"})));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.5); }));
    const Program second(reachable(setup({"-q", "-o", folder_.file("b.wav")}, game("60"))));
    ASSERT_TRUE(eventually([&] {
        return hasPlayed(0.5, {"--pid", std::to_string(second.pid())});
    }));
    const ProgramEnd end = list();
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_THAT(end.output, HasSubstr("recorder " + std::to_string(first.pid()) + ", 0:00:"));
    EXPECT_THAT(end.output, HasSubstr("recorder " + std::to_string(second.pid()) + ", 0:00:"));
    EXPECT_THAT(end.output,
                testing::ContainsRegex(
                    "  1 +unit-1 +recorded_host \\([0-9]+\\) +48000 Hz, 32-bit float, stereo +-6.0 "
                    "dBFS +[0-9]+.[0-9] s\n"));
    EXPECT_THAT(end.output, testing::ContainsRegex("  mix +game_host \\([0-9]+\\) +44100 Hz, "));
}

}  // namespace
}  // namespace tqrecorder::test
