// What keeps a recording from starting, or from hearing anything.

#include <sys/stat.h>
#include <algorithm>

#include "RecorderFixture.h"

namespace tqrecorder::test {
namespace {

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

TEST_F(RecorderTest, SaysThatTheGuardKeptTheHooksOutAndHowToArmIt) {
    const ProgramEnd outcome = run({"--no-arm", "-o", folder_.file("out.wav")}, game("1"));
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("crash guard"));
    EXPECT_THAT(outcome.errors, HasSubstr("tqaudiorecord guard arm"));
}

}  // namespace
}  // namespace tqrecorder::test
