// Mix and tracks of a real program in one file.

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <random>

#include "RecorderFixture.h"
#include "tools/tqaudiorecord/output/DecodedFile.h"

namespace tqrecorder::test {
namespace {

class RecorderMatroskaTest : public RecorderTest {
  protected:
    /// Whether the mix and the music are in it, and nothing in it is broken.
    static void expectGame(const std::string& path, double shortest) {
        const DecodedFile file(path);
        ASSERT_TRUE(file.opened) << path;
        EXPECT_THAT(file.complaints, testing::IsEmpty());
        const DecodedStream& mix = file.stream("mix");
        ASSERT_GT(mix.seconds(), shortest);
        const double end = std::min(shortest, 2.0);
        // In a long game the music fades in.
        EXPECT_GT(upperQuarter(mix, 441, end), 0.04);
        EXPECT_LT(mix.amplitude(3150, 0.3, end), 0.02);
        ASSERT_GE(file.streams.size(), 3U);
        for (const DecodedStream& stream : file.streams) {
            EXPECT_NE(stream.title, "");
            EXPECT_LT(stream.worstJump, 0.03) << stream.title;
        }
    }
    const std::string path_ = folder_.file("game.mka");
};

class EveryMatroskaTest : public RecorderMatroskaTest,
                          public testing::WithParamInterface<const char*> {};

TEST_P(EveryMatroskaTest, HoldsWhatOtherProgramsRead) {
    const ProgramEnd outcome = run({"-q", "-o", path_, "--format", GetParam()}, game("4"));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    expectGame(path_, 2);
    if (hasTool("ffprobe")) {
        const std::string titles =
            shell("ffprobe -v error -show_entries stream_tags=title -of csv=p=0 " + path_);
        EXPECT_THAT(titles, testing::StartsWith("mix\nunit-"));
        EXPECT_EQ(shell("ffmpeg -nostdin -v error -i " + path_ + " -map 0 -f null - 2>&1"), "");
    }
    if (hasTool("mpv")) {
        // Whoever looks at one track only: of each there is something to play.
        const std::string said = shell("mpv --no-config --ao=null --untimed --aid=2 " + path_);
        EXPECT_THAT(said, HasSubstr("--aid=1"));
        EXPECT_THAT(said, HasSubstr("'mix'"));
        EXPECT_THAT(said, HasSubstr("(+) Audio --aid=2"));
        EXPECT_THAT(said, HasSubstr("End of file"));
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, EveryMatroskaTest,
                         testing::Values("mka", "mka-pcm", "mka-opus", "mka-vorbis"),
                         [](const auto& kind) {
                             std::string name = kind.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST_F(RecorderMatroskaTest, IsWholeWhenTheRecorderIsKilled) {
    Program program(setup({"-q", "-o", path_}, game("30")));
    ASSERT_TRUE(eventually([&] { return DecodedFile(path_).stream("mix").seconds() > 2.5; }));
    program.signal(SIGKILL);
    program.wait();
    expectGame(path_, 2.4);
}

TEST_F(RecorderMatroskaTest, IsWholeWhenTheProgramIsKilled) {
    const std::vector<std::string> words = game("30");
    std::string line = "exec";
    for (const std::string& word : words) {
        line += " '" + word + "'";
    }
    const std::string number = folder_.file("pid");
    Program program(setup({"-q", "-o", path_}, {"sh", "-c", "echo $$ > " + number + "; " + line}));
    ASSERT_TRUE(eventually([&] { return DecodedFile(path_).stream("mix").seconds() > 2.5; }));
    ::kill(std::stoi(contentOf(number)), SIGKILL);
    EXPECT_EQ(program.wait().code, 128 + SIGKILL);
    expectGame(path_, 2.4);
}

/// TQ_TEST_KILLS says how many (four unless told), TQ_TEST_SEED which moments.
class RecorderMatroskaKillTest : public RecorderMatroskaTest,
                                 public testing::WithParamInterface<const char*> {
  protected:
    static int numberFrom(const char* variable, int usual) {
        const char* const text = std::getenv(variable);
        return text == nullptr ? usual : std::atoi(text);
    }
};

TEST_P(RecorderMatroskaKillTest, AtAnyMomentLeavesItWhole) {
    const bool isOfTheProgram = std::string(GetParam()) == "Program";
    std::minstd_rand random(static_cast<unsigned>(numberFrom("TQ_TEST_SEED", 1)));
    std::uniform_int_distribution<int> moment(0, 1500);
    const int kills = numberFrom("TQ_TEST_KILLS", 4);
    int files = 0;
    for (int round = 0; round < kills; ++round) {
        const std::string path = folder_.file("out-" + std::to_string(round) + ".mka");
        Program program(setup({"-o", path}, game("60")));
        ASSERT_TRUE(eventually([&] { return !program.children().empty(); }));
        const int milliseconds = moment(random);
        std::this_thread::sleep_for(std::chrono::milliseconds{milliseconds});
        const std::vector<pid_t> hosts = program.children();
        if (!isOfTheProgram) {
            program.signal(SIGKILL);
        }
        for (const pid_t host : hosts) {
            ::kill(host, SIGKILL);
        }
        const std::string said = program.wait().text();
        const bool isThere = std::filesystem::exists(path);
        files += isThere ? 1 : 0;
        if (isOfTheProgram) {
            EXPECT_EQ(isThere, said.find("Recorded: game_host") != std::string::npos)
                << milliseconds << " ms: " << said;
        }
        if (isThere) {
            const DecodedFile file(path);
            EXPECT_TRUE(file.opened) << milliseconds << " ms";
            EXPECT_THAT(file.complaints, testing::IsEmpty()) << milliseconds << " ms";
            EXPECT_GE(file.streams.size(), 1U) << milliseconds << " ms";
        }
    }
    // On a busy machine many die before their first sound.
    std::cout << kills << " kills, " << files << " files\n";
}

INSTANTIATE_TEST_SUITE_P(Of, RecorderMatroskaKillTest, testing::Values("Recorder", "Program"),
                         [](const auto& who) { return std::string(who.param); });

TEST_F(RecorderMatroskaTest, AReplayIsSavedWithItsTracks) {
    Program program(
        setup({"-q", "-o", path_, "--replay", "20", "--events", folder_.file("events.jsonl")},
              game("30")));
    ASSERT_TRUE(eventually([&] {
        return contentOf(folder_.file("events.jsonl")).find("audio unit start: 2") !=
               std::string::npos;
    }));
    // The first saves have little in them; each goes to a file of its own.
    const auto last = [this] {
        const std::vector<std::string> names = folder_.names();
        const auto found = std::find_if(names.rbegin(), names.rend(), [](const auto& name) {
            return name.starts_with("game-") && name.ends_with(".mka");
        });
        return found == names.rend() ? std::string() : folder_.file(*found);
    };
    EXPECT_TRUE(eventually([&] {
        program.signal(SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds{300});
        return !last().empty() && DecodedFile(last()).stream("mix").seconds() > 2.5;
    }));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().code, 0);
    expectGame(last(), 2.4);
    const DecodedFile file(last());
    for (const DecodedStream& stream : file.streams) {
        EXPECT_NEAR(stream.seconds(), file.stream("mix").seconds(), 0.01) << stream.title;
        EXPECT_EQ(stream.start, 0) << stream.title;
    }
}

TEST_F(RecorderMatroskaTest, ALongRecordingGoesOnInNumberedFiles) {
    const ProgramEnd outcome = run({"-q", "-o", path_, "--max-file-time", "1"}, game("4"));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(DecodedFile(folder_.file("game-001.mka")).stream("mix").frames(), 44'100U);
    EXPECT_EQ(DecodedFile(folder_.file("game-002.mka")).stream("mix").frames(), 44'100U);
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(RecorderMatroskaTest, WhatIsThereIsRefusedAndAnEmptyLaunchReplacesNothing) {
    std::ofstream(path_) << "precious";
    const ProgramEnd refused = run({"-o", path_}, game("1"));
    EXPECT_EQ(refused.code, 2);
    EXPECT_THAT(refused.errors, HasSubstr("game.mka is there already"));
    EXPECT_EQ(run({"-q", "--overwrite", "-o", path_}, {"/bin/true"}).code, 2);
    EXPECT_EQ(contentOf(path_), "precious");
    ASSERT_EQ(run({"-q", "--overwrite", "-o", path_}, game("3")).code, 0);
    expectGame(path_, 1.5);
}

}  // namespace
}  // namespace tqrecorder::test
