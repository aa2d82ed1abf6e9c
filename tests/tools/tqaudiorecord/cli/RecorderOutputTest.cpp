// What the recorder writes and shows.

#include <algorithm>

#include <nlohmann/json.hpp>

#include "RecorderFixture.h"
#include "tools/tqaudiorecord/view/ScreenImage.h"

namespace tqrecorder::test {
namespace {

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

TEST_F(RecorderTest, WhatTheProgramPrintsWhileTheMeterRunsStaysWhole) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's run-time cannot be loaded into the shell and its seq";
#endif
    Terminal terminal(24, 100);
    // Silent at first, so that the meter is there; then single lines, bursts, and a pause.
    const std::string script =
        "(sleep 0.7; for i in $(seq 40); do echo \"line $i of the program\"; sleep 0.03; done;"
        " seq -f 'burst %g of the program' 30; sleep 0.5; echo the last of the program) & "
        "exec \"$0\" \"$@\"";
    std::vector<std::string> command{"--", "sh", "-c", script};
    const std::vector<std::string> host = game("4");
    command.insert(command.end(), host.begin(), host.end());
    ProgramSetup with = setup({"-o", folder_.file("out.wav")}, command);
    with.output = terminal.programEnd();
    with.errors = terminal.programEnd();
    Program program(with);
    const std::vector<std::string> image = screenImage(terminal.readToEnd());
    EXPECT_EQ(program.wait().code, 0);
    const auto expectOnce = [&image](const std::string& line) {
        EXPECT_EQ(std::count(image.begin(), image.end(), line), 1) << line;
    };
    for (int i = 1; i <= 40; ++i) {
        expectOnce("line " + std::to_string(i) + " of the program");
    }
    for (int i = 1; i <= 30; ++i) {
        expectOnce("burst " + std::to_string(i) + " of the program");
    }
    expectOnce("the last of the program");
    EXPECT_THAT(image, testing::Contains(testing::StartsWith("Recorded: game_host")));
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

}  // namespace
}  // namespace tqrecorder::test
