#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "bridges/programs/Player.h"
#include "bridges/programs/RecordedRun.h"
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

class PulsePlayersTest : public testing::TestWithParam<Player> {
  protected:
    void SetUp() override { skipUnlessPreloading(); }
};

TEST_P(PulsePlayersTest, IsOnOneTrackFrameForFrame) {
    const Player& player = GetParam();
    const auto output = player.makeOutput();
    const Sound noise = tqtest::markedNoise(player.format, 36000);
    const std::string file = output->folder().file("noise.wav");
    writeWav(noise, file);
    const ProgramRun run = runRecorded(*output, player.playing(file));
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    expectTrackHolds(run, noise);
}

INSTANTIATE_TEST_SUITE_P(
    Debian, PulsePlayersTest,
    testing::Values(
        Player{"paplay", kPulse, {"paplay"}},
        Player{"paplay441Mono", kPulse, {"paplay"}, {}, {.rate = 44100, .channels = 1}},
        Player{"paplaySix", kPulse, {"paplay"}, {}, {.channels = 6}},
        Player{"mpv", kPulse, {"mpv", "--no-config", "--no-video", "--really-quiet", "--ao=pulse"}},
        Player{"ffplay",
               kPulse,
               {"env", "SDL_AUDIODRIVER=pulseaudio", "ffplay", "-nodisp", "-autoexit", "-loglevel",
                "error"}},
        Player{"sox",
               kPulse,
               {"sox", "-q"},
               {"-t", "pulseaudio", "cap"},
               {.encoding = Encoding::S32}}),
    [](const testing::TestParamInfo<Player>& each) { return each.param.name; });

struct PulsePrograms : RecordedRun {};

TEST_F(PulsePrograms, ARecordingProgramIsNoTrack) {
    ServerOutput<PulseServer> output;
    const ProgramRun run = runRecorded(output, {"timeout", "1", "parec", "-d", "cap.monitor",
                                                "--raw", output.folder().file("heard.raw")});
    EXPECT_TRUE(run.tracks.empty());
    EXPECT_GT(std::filesystem::file_size(output.folder().file("heard.raw")), 0U);
}

}  // namespace
}  // namespace programruns
