// What keeps a recording from starting, or from hearing anything.

#include <sys/stat.h>
#include <algorithm>

#include "RecorderFixture.h"

namespace tqrecorder::test {
namespace {

TEST_F(RecorderTest, FindsAPathThatCannotBeWrittenBeforeTheHostStarts) {
    for (const char* option : {"-o", "--tracks", "--events", "--picture", "--report"}) {
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
    for (const char* option : {"-o", "--events", "--picture", "--report"}) {
        const ProgramEnd outcome = run({option, pipe}, game("60"));
        EXPECT_EQ(outcome.code, 2) << option;
        EXPECT_THAT(outcome.errors, HasSubstr("only --output - writes into one")) << option;
    }
}

TEST_F(RecorderTest, StandardOutputThatIsATerminalIsRefused) {
    const Terminal terminal(24, 80);
    ProgramSetup with = setup({"-o", "-"}, game("60"));
    with.output = terminal.programEnd();
    const ProgramEnd outcome = tqtest::runProgram(with);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("standard output is a terminal"));
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

TEST_F(RecorderTest, SaysThatTheGuardKeptTheHooksOutAndHowToArmIt) {
    const ProgramEnd outcome = run({"--no-arm", "-o", folder_.file("out.wav")}, game("1"));
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("crash guard"));
    EXPECT_THAT(outcome.errors, HasSubstr("tqaudiorecord guard arm"));
}

TEST_F(RecorderTest, WithoutStandardStreamsItWritesNothingIntoItsFiles) {
    // Which of the three the caller has closed, one bit each.
    std::vector<std::unique_ptr<Program>> programs;
    for (int closed = 1; closed < 8; ++closed) {
        std::string redirections;
        for (const int stream : {0, 1, 2}) {
            redirections += (closed & 1 << stream) != 0 ? " " + std::to_string(stream) + ">&-" : "";
        }
        const std::string place = folder_.file(std::to_string(closed));
        ProgramSetup with = setup(
            {"-v", "-o", place + ".wav", "--events", place + ".jsonl", "--tracks", place + ".t"},
            game("1.5"));
        with.arguments.insert(with.arguments.begin(),
                              {"sh", "-c", "exec \"$0\" \"$@\"" + redirections});
        programs.push_back(std::make_unique<Program>(with));
    }
    for (int closed = 1; closed < 8; ++closed) {
        const ProgramEnd end = programs[static_cast<std::size_t>(closed) - 1]->wait();
        EXPECT_EQ(end.code, 0) << closed << ": " << end.errors;
        const std::string place = folder_.file(std::to_string(closed));
        expectMusic(place + ".wav", 44100, 0.8);
        for (const auto& file : std::filesystem::recursive_directory_iterator(
                 folder_.path() / (std::to_string(closed) + ".t"))) {
            EXPECT_EQ(contentOf(file.path()).find("tqaudiorecord"), std::string::npos) << file;
        }
        for (const char* const file : {".wav", ".jsonl"}) {
            EXPECT_EQ(contentOf(place + file).find("tqaudiorecord"), std::string::npos)
                << closed << file;
        }
        const std::string events = contentOf(place + ".jsonl");
        EXPECT_TRUE(events.starts_with("{\"") && events.ends_with("}\n")) << events;
    }
}

TEST_F(RecorderTest, EachOfThoseThatBeginAtOnceRecords) {
    constexpr int kRecorders = 8;
    const auto place = [&](int number) { return folder_.file(std::to_string(number) + ".wav"); };
    std::vector<std::unique_ptr<Program>> programs;
    for (int number = 0; number < kRecorders; ++number) {
        programs.push_back(std::make_unique<Program>(setup({"-o", place(number)}, game("1.5"))));
    }
    for (int number = 0; number < kRecorders; ++number) {
        const ProgramEnd end = programs[static_cast<std::size_t>(number)]->wait();
        EXPECT_EQ(end.code, 0) << end.errors;
        expectMusic(place(number), 44100, 0.8);
    }
}

TEST_F(RecorderTest, AClosedStandardOutputTakesNoRecording) {
    ProgramSetup with = setup({"-q", "-o", "-"}, game("1"));
    with.arguments.insert(with.arguments.begin(), {"sh", "-c", "exec \"$0\" \"$@\" >&-"});
    const ProgramEnd end = tqtest::runProgram(with);
    EXPECT_EQ(end.code, 2) << end.errors;
    EXPECT_NE(end.errors, "");
}

}  // namespace
}  // namespace tqrecorder::test
