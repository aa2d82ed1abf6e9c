// The example host as its user meets it. Its own sounds come from other packages; here it plays
// tones of the same names.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "../picture/TestWave.h"

namespace {

struct Outcome {
    int code = -1;
    std::string output;
    std::string errors;
};

std::string contentOf(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class GameHostTest : public testing::Test {
  protected:
    void makeSounds() {
        using tqpicture::test::sine;
        using tqpicture::test::writeWave;
        for (const char* name : {"music_game.wav", "Noise.wav", "Front_Center.wav", "exploBig.wav",
                                 "exploPop.wav", "power.wav", "bell.oga", "complete.oga"}) {
            ASSERT_TRUE(writeWave(folder_.file(name), sine(440, 22050, 4000, 0.3), 22050));
        }
    }

    /// Runs to the end, or sends `signal` as soon as the music is announced.
    Outcome run(const std::vector<std::string>& arguments, int signal = 0) {
        const std::string out = folder_.file("stdout.txt");
        const std::string errors = folder_.file("stderr.txt");
        std::ofstream(out).close();
        const pid_t child = fork();
        if (child == 0) {
            setenv("TQ_AUDIO_DEVICE", "null", 1);
            std::vector<char*> list{const_cast<char*>(TQ_GAME_HOST)};
            for (const std::string& argument : arguments) {
                list.push_back(const_cast<char*>(argument.c_str()));
            }
            list.push_back(nullptr);
            if (freopen(out.c_str(), "w", stdout) == nullptr ||
                freopen(errors.c_str(), "w", stderr) == nullptr) {
                _exit(126);
            }
            execv(TQ_GAME_HOST, list.data());
            _exit(127);
        }
        if (signal != 0) {
            // Bounded: the host announces its music within a second or so.
            for (int tries = 0; tries < 2000; ++tries) {
                if (contentOf(out).find("music:") != std::string::npos) {
                    break;
                }
                usleep(5000);
            }
            kill(child, signal);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(out), contentOf(errors)};
    }

    tqpicture::test::TestFolder folder_;
};

TEST_F(GameHostTest, PlaysItsScriptToTheEnd) {
    makeSounds();
    const Outcome outcome = run({"--seconds", "1", "--sounds", folder_.file("")});
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
    const Outcome outcome = run({"--seconds", "2", "--sounds", folder_.file("")});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    const std::size_t place = outcome.output.find("voice: left, ");
    ASSERT_NE(place, std::string::npos);
    // The chat lasts about a second at 16000 Hz; a loaded machine may lose some of it.
    EXPECT_GT(std::atoi(outcome.output.c_str() + place + 13), 4000);
}

TEST_F(GameHostTest, SaysNothingWhenQuiet) {
    makeSounds();
    const Outcome outcome = run({"--seconds", "0.5", "--quiet", "--sounds", folder_.file("")});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(GameHostTest, EndsCleanlyOnSignals) {
    makeSounds();
    for (const int signal : {SIGINT, SIGTERM}) {
        const Outcome outcome = run({"--seconds", "60", "--sounds", folder_.file("")}, signal);
        EXPECT_EQ(outcome.code, 0);
        EXPECT_NE(outcome.output.find("stopped by a signal"), std::string::npos);
        EXPECT_NE(outcome.output.find("end"), std::string::npos);
    }
}

TEST_F(GameHostTest, NamesAMissingSoundInOneLine) {
    const Outcome outcome = run({"--sounds", folder_.file("")});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.errors.find("music_game.wav"), std::string::npos) << outcome.errors;
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
}

TEST_F(GameHostTest, RefusesADamagedSound) {
    makeSounds();
    std::ofstream(folder_.file("bell.oga")) << "no sound";
    const Outcome outcome = run({"--sounds", folder_.file("")});
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
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.code, 1);
        EXPECT_NE(outcome.errors.find("usage: game_host"), std::string::npos);
    }
}

}  // namespace
