#include <gtest/gtest.h>

#include "bridges/programs/Player.h"
#include "bridges/programs/RecordedRun.h"
#include "support/sound/Comparison.h"

// Programs that play through one interface on top of another: each of them is redirected, and the
// sound is recorded once.

namespace programruns {
namespace {

class LayersTest : public testing::TestWithParam<Player> {
  protected:
    void SetUp() override { skipUnlessPreloading(); }
};

/// What differs beside silence between: on a busy machine SDL and its programs are late themselves.
std::vector<std::string> faultsIn(const tqtest::Sound& wanted, const tqtest::Sound& got) {
    std::vector<std::string> faults = tqtest::differences(wanted, got);
    std::erase_if(faults, [](const std::string& each) {
        return each.find("of silence inserted") != std::string::npos;
    });
    return faults;
}

TEST_P(LayersTest, IsOneTrackThatIsWhole) {
    const std::unique_ptr<Output> output = GetParam().makeOutput();
    const tqtest::Sound noise = tqtest::markedNoise(GetParam().format, 48000);
    const std::string file = output->folder().file("noise.wav");
    writeWav(noise, file);
    const ProgramRun run = runRecorded(*output, GetParam().playing(file));
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    ASSERT_EQ(run.tracks.size(), 1U) << run.end.text();
    EXPECT_EQ(faultsIn(noise, run.tracks.begin()->second.trimmed()), std::vector<std::string>{})
        << run.end.text();
    EXPECT_GT(run.heard.frames(), 24000U);
}

INSTANTIATE_TEST_SUITE_P(
    Debian, LayersTest,
    testing::Values(Player{"mpvOverSdlOverAlsa",
                           kPulse,
                           {"env", "SDL_AUDIODRIVER=alsa", "AUDIODEV=pulse", "mpv", "--no-config",
                            "--no-video", "--really-quiet", "--ao=sdl"}},
                    Player{"ffplayOverSdlOverPipeWire",
                           kPipeWire,
                           {"env", "SDL_AUDIODRIVER=pipewire", "ffplay", "-nodisp", "-autoexit",
                            "-loglevel", "error"}},
                    Player{"ffplayOverSdlOverPulse",
                           kPulse,
                           {"env", "SDL_AUDIODRIVER=pulseaudio", "ffplay", "-nodisp", "-autoexit",
                            "-loglevel", "error"}},
                    // Of the package libsdl1.2-compat, which keeps it apart from other libraries.
                    Player{"sdl12OverSdl2",
                           kSdl,
                           {"env", "LD_LIBRARY_PATH=" TQ_TEST_SDL12_FOLDER, TQ_TEST_SDL12_PLAYER}}),
    nameOf);

}  // namespace
}  // namespace programruns
