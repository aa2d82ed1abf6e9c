// The example host as its user meets it. Its own sounds come from other packages; here it plays
// tones of the same names.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>

#include "GameSounds.h"
#include "support/ProgramRunner.h"

namespace {

using tqtest::makeGameSounds;
using tqtest::ProgramEnd;

class GameHostTest : public testing::Test {
  protected:
    void makeSounds() { ASSERT_TRUE(makeGameSounds(folder_)); }
    /// Runs it to its end. With a `signal`, sends it as soon as the music has begun.
    static ProgramEnd run(std::vector<std::string> arguments, int signal = 0) {
        arguments.insert(arguments.begin(), TQ_GAME_HOST);
        tqtest::Program host(
            {.arguments = arguments, .environment = {{"TQ_AUDIO_DEVICE", "null"}}});
        if (signal != 0) {
            EXPECT_TRUE(tqtest::eventually(
                [&] { return host.output().find("music:") != std::string::npos; }));
            host.signal(signal);
        }
        return host.wait();
    }

    TemporaryFolder folder_;
};

TEST_F(GameHostTest, PlaysItsScriptToTheEnd) {
    makeSounds();
    const ProgramEnd outcome = run({"--seconds", "1", "--sounds", folder_.file("")});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    for (const char* scene :
         {"music: RemoteIO", "effects: graph", "ambience: RemoteIO", "ambience: stopped",
          "voice: VoiceProcessingIO", "voice: left", "effect: level complete", "end"}) {
        EXPECT_NE(outcome.output.find(scene), std::string::npos) << scene;
    }
}

TEST_F(GameHostTest, HearsItsMicrophone) {
    makeSounds();
    const ProgramEnd outcome = run({"--seconds", "2", "--sounds", folder_.file("")});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    const std::size_t place = outcome.output.find("voice: left, ");
    ASSERT_NE(place, std::string::npos);
    // The chat lasts about a second at 16000 Hz; a loaded machine may lose some of it.
    EXPECT_GT(std::atoi(outcome.output.c_str() + place + 13), 4000);
}

TEST_F(GameHostTest, SaysNothingWhenQuiet) {
    makeSounds();
    const ProgramEnd outcome = run({"--seconds", "0.5", "--quiet", "--sounds", folder_.file("")});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(GameHostTest, EndsCleanlyOnSignals) {
    makeSounds();
    for (const int signal : {SIGINT, SIGTERM}) {
        const ProgramEnd outcome = run({"--seconds", "60", "--sounds", folder_.file("")}, signal);
        EXPECT_EQ(outcome.code, 0);
        EXPECT_NE(outcome.output.find("stopped by a signal"), std::string::npos);
        EXPECT_NE(outcome.output.find("end"), std::string::npos);
    }
}

TEST_F(GameHostTest, NamesAMissingSoundInOneLine) {
    const ProgramEnd outcome = run({"--sounds", folder_.file("")});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.errors.find("music_game.wav"), std::string::npos) << outcome.errors;
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
}

TEST_F(GameHostTest, RefusesADamagedSound) {
    makeSounds();
    std::ofstream(folder_.file("bell.oga")) << "no sound";
    const ProgramEnd outcome = run({"--sounds", folder_.file("")});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.errors.find("bell.oga"), std::string::npos) << outcome.errors;
}

TEST_F(GameHostTest, AnswersWrongArgumentsWithItsUsage) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--seconds", "0"},
                                                      {"--seconds", "x"},
                                                      {"--seconds"},
                                                      {"--sounds"},
                                                      {"--loud"},
                                                      {"--seconds", "nan"}}) {
        const ProgramEnd outcome = run(arguments);
        EXPECT_EQ(outcome.code, 1);
        EXPECT_NE(outcome.errors.find("usage: game_host"), std::string::npos);
    }
}

}  // namespace
