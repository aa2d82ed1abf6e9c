// No recording is lost to a later one.

#include <algorithm>
#include <memory>

#include "RecorderFixture.h"

namespace tqrecorder::test {
namespace {

class RecorderKeepTest : public RecorderTest {
  protected:
    const std::string path_ = folder_.file("out.wav");
};

TEST_F(RecorderKeepTest, WithoutAPlaceTheMixGoesToTheMusicFolder) {
    const ProgramEnd outcome = run({}, game("2"));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.file("music"))) {
        files.push_back(entry.path());
    }
    ASSERT_EQ(files.size(), 1U);
    EXPECT_THAT(files[0],
                testing::MatchesRegex(".*/game_host-20[0-9]{2}-[0-9]{2}-[0-9]{2}-[0-9]{6}\\.flac"));
    expectMusic(files[0], 44100, 1);
    EXPECT_THAT(outcome.errors,
                testing::StartsWith("tqaudiorecord: recording to " + files[0] + "\n"));
    EXPECT_THAT(outcome.errors, HasSubstr("Files:\n  " + files[0] + " ("));
}

TEST_F(RecorderKeepTest, OfThoseThatBeginAtOnceWithoutAPlaceEachHasItsOwn) {
    constexpr std::size_t kRecorders = 4;
    std::vector<std::unique_ptr<Program>> programs;
    for (std::size_t number = 0; number < kRecorders; ++number) {
        programs.push_back(std::make_unique<Program>(setup({"-q", "--format", "wav"}, game("2"))));
    }
    for (const auto& program : programs) {
        const ProgramEnd end = program->wait();
        EXPECT_EQ(end.code, 0) << end.errors;
    }
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.file("music"))) {
        expectMusic(entry.path(), 44100, 1);
        ++files;
    }
    EXPECT_EQ(files, kRecorders);
}

TEST_F(RecorderKeepTest, TheMusicFolderIsThatOfTheDesktop) {
    std::filesystem::create_directories(folder_.file("home/.config"));
    std::ofstream(folder_.file("home/.config/user-dirs.dirs"))
        << "# made by a desktop\nXDG_MUSIC_DIR=\"$HOME/Musique\"\n";
    ProgramSetup with = setup({"-q", "--format", "wav"}, game("1"));
    with.environment["XDG_MUSIC_DIR"] = "";
    with.environment["XDG_CONFIG_HOME"] = "";
    with.environment["HOME"] = folder_.file("home");
    const ProgramEnd outcome = tqtest::runProgram(with);
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    const std::filesystem::directory_iterator first(folder_.file("home/Musique"));
    EXPECT_EQ(first->path().extension(), ".wav");
}

TEST_F(RecorderKeepTest, WhatIsThereIsRefusedBeforeTheCommandStarts) {
    std::ofstream(path_) << "precious";
    std::filesystem::create_directory(folder_.file("tracks"));
    std::ofstream(folder_.file("tracks/track-1-music.wav")) << "precious";
    std::ofstream(folder_.file("long-001.wav")) << "precious";
    const std::vector<std::vector<std::string>> cases{
        {"-o", path_},
        {"--events", path_},
        {"--picture", path_},
        {"--report", path_},
        {"-o", folder_.file("long.wav"), "--max-file-time", "1"},
        {"--tracks", folder_.file("tracks")}};
    for (const std::vector<std::string>& options : cases) {
        const ProgramEnd outcome = run(options, {"sh", "-c", "touch " + folder_.file("started")});
        EXPECT_EQ(outcome.code, 2);
        EXPECT_THAT(outcome.errors, HasSubstr("--overwrite replaces"));
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
    }
    EXPECT_FALSE(std::filesystem::exists(folder_.file("started")));
    for (const char* name : {"out.wav", "tracks/track-1-music.wav", "long-001.wav"}) {
        EXPECT_EQ(contentOf(folder_.file(name)), "precious");
    }
}

TEST_F(RecorderKeepTest, AMicrophoneFileThatCannotBeMadeKeepsTheCommandFromStarting) {
    std::filesystem::create_directory(folder_.file(".out-microphone.wav.tqaudiorecord"));
    const ProgramEnd outcome =
        run({"--mic", "-o", path_}, {"sh", "-c", "touch " + folder_.file("started")});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("out-microphone.wav: "));
    EXPECT_FALSE(std::filesystem::exists(folder_.file("started")));
}

TEST_F(RecorderKeepTest, AnEmptyLaunchReplacesNothingAndARealOneDoes) {
    const std::string events = folder_.file("events.jsonl");
    std::ofstream(path_) << "precious";
    std::ofstream(events) << "precious";
    const std::vector<std::string> options{"-q", "--overwrite", "-o", path_, "--events", events};
    EXPECT_EQ(run(options, {"/bin/true"}).code, 2);
    EXPECT_EQ(contentOf(path_), "precious");
    EXPECT_EQ(contentOf(events), "precious");
    ASSERT_EQ(run(options, game("2")).code, 0);
    expectMusic(path_, 44100, 1);
    EXPECT_THAT(contentOf(events), HasSubstr("audio unit start"));
}

TEST_F(RecorderKeepTest, TheSecondRecorderOfOneOutputIsTold) {
    Program first(setup({"-q", "-o", path_, "--tracks", folder_.file("tracks")}, game("8")));
    ASSERT_TRUE(eventually([&] { return RecordedFile(path_).frames() > 88'200; }));
    const ProgramEnd second = run({"--overwrite", "-o", path_}, game("1"));
    EXPECT_EQ(second.code, 2);
    EXPECT_THAT(second.errors, HasSubstr("out.wav: another recorder is writing it"));
    const ProgramEnd third = run({"--overwrite", "--tracks", folder_.file("tracks")}, game("1"));
    EXPECT_EQ(third.code, 2);
    EXPECT_THAT(third.errors, HasSubstr("another recorder is writing its tracks there"));
    first.signal(SIGINT);
    EXPECT_EQ(first.wait().code, 0);
    expectMusic(path_, 44100, 1.9);
}

TEST_F(RecorderKeepTest, TheSecondRecorderIsToldAlsoBehindTheFirstFileOfASeries) {
    Program first(setup({"-q", "--max-file-time", "0.5", "-o", path_}, game("30")));
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(folder_.file("out-003.wav")); }));
    for (const char* const seconds : {"0.5", "1000"}) {
        const ProgramEnd second =
            run({"--overwrite", "--max-file-time", seconds, "-o", path_}, game("1"));
        EXPECT_EQ(second.code, 2);
        EXPECT_THAT(second.errors, HasSubstr(".wav: another recorder is writing it\n"));
    }
    first.signal(SIGINT);
    EXPECT_EQ(first.wait().code, 0);
    EXPECT_EQ(RecordedFile(folder_.file("out-001.wav")).frames(), 22'050U);
    EXPECT_FALSE(std::filesystem::exists(folder_.file(".out.wav.tqaudiorecord")));
}

TEST_F(RecorderKeepTest, AnOutputThatIsDeletedMeanwhileIsNoSuccess) {
    Program program(setup({"-o", path_}, game("30")));
    ASSERT_TRUE(eventually([&] { return RecordedFile(path_).frames() > 22'050; }));
    std::filesystem::remove(path_);
    program.signal(SIGINT);
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 2);
    EXPECT_THAT(end.errors, HasSubstr("Problem: " + path_ + ": was deleted"));
    EXPECT_THAT(end.errors, Not(HasSubstr("Files:")));
}

}  // namespace
}  // namespace tqrecorder::test
