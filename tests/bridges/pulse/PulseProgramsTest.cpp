#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <ostream>

#include "bridges/programs/ProgramRun.h"
#include "support/sound/Comparison.h"

// Players of PulseAudio under servers: one track each, which holds what was written in the format
// in which it was written.

namespace programruns {
namespace {

using tqtest::Encoding;
using tqtest::PulseServer;
using tqtest::Sound;
using tqtest::SoundFormat;

const std::vector<std::string> kNothing;

struct Player {
    std::string name;
    SoundFormat format;
    std::vector<std::string> command;      ///< the file that it plays comes behind it
    std::vector<std::string> behind = {};  ///< and this behind the file
};

void PrintTo(const Player& player, std::ostream* out) {
    *out << player.name;
}

std::vector<std::string> commandOf(const Player& player, const std::string& file) {
    std::vector<std::string> command = player.command;
    command.push_back(file);
    command.insert(command.end(), player.behind.begin(), player.behind.end());
    return command;
}

class PulsePlayersTest : public testing::TestWithParam<Player> {};

TEST_P(PulsePlayersTest, IsOnOneTrackFrameForFrame) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    const Player& player = GetParam();
    ServerOutput<PulseServer> output;
    const Sound noise = tqtest::markedNoise(player.format, 36000);
    const std::string file = output.folder().file("noise.wav");
    writeWav(noise, file);
    const ProgramRun run = runRecorded(output, commandOf(player, file));
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    expectTrackHolds(run, noise);
}

INSTANTIATE_TEST_SUITE_P(
    Debian, PulsePlayersTest,
    testing::Values(
        Player{"paplay", {}, {"paplay"}},
        Player{"paplay441Mono", {.rate = 44100, .channels = 1}, {"paplay"}},
        Player{"paplaySix", {.channels = 6}, {"paplay"}},
        Player{"mpv", {}, {"mpv", "--no-config", "--no-video", "--really-quiet", "--ao=pulse"}},
        Player{"ffplay",
               {},
               {"env", "SDL_AUDIODRIVER=pulseaudio", "ffplay", "-nodisp", "-autoexit", "-loglevel",
                "error"}},
        Player{"sox", {.encoding = Encoding::S32}, {"sox", "-q"}, {"-t", "pulseaudio", "cap"}}),
    [](const testing::TestParamInfo<Player>& each) { return each.param.name; });

TEST(PulseProgramsTest, ARecordingProgramIsNoTrack) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    ServerOutput<PulseServer> output;
    const ProgramRun run = runRecorded(output, {"timeout", "1", "parec", "-d", "cap.monitor",
                                                "--raw", output.folder().file("heard.raw")});
    EXPECT_TRUE(run.tracks.empty());
    EXPECT_GT(std::filesystem::file_size(output.folder().file("heard.raw")), 0U);
}

}  // namespace
}  // namespace programruns
