#include <gtest/gtest.h>

#include "bridges/programs/Player.h"
#include "bridges/programs/RecordedRun.h"
#include "support/sound/Comparison.h"

// Players of the distribution: what they play is the same at every run, and the same under the
// recorder.

namespace programruns {
namespace {

using tqtest::Sound;
using tqtest::SoundFormat;

const std::vector<std::string> kNothing;

class PlayersTest : public testing::TestWithParam<Player> {
  protected:
    PlayersTest() : output_(GetParam().makeOutput()) {
        const std::string file = output_->folder().file("noise.wav");
        writeWav(noise_, file);
        command_ = GetParam().playing(file);
    }

    const Sound noise_ = tqtest::markedNoise(GetParam().format, 24000);
    std::unique_ptr<Output> output_;
    std::vector<std::string> command_;
};

TEST_P(PlayersTest, BareItIsHeardFrameForFrameAtEveryRun) {
    const ProgramRun first = runBare(*output_, command_);
    EXPECT_EQ(first.end.code, 0) << first.end.text();
    EXPECT_EQ(tqtest::differences(noise_, first.heard), kNothing);
    expectSameSound(first, runBare(*output_, command_), GetParam().name);
}

class RecordedPlayersTest : public PlayersTest {
  protected:
    void SetUp() override { skipUnlessPreloading(); }
};

TEST_P(RecordedPlayersTest, SoundsAsBare) {
    expectSameSoundAsBare(*output_, command_);
}

/// At the rate and in the format of the mix.
class MixedPlayersTest : public RecordedPlayersTest {};

TEST_P(MixedPlayersTest, TrackAndMixAreWhatItPlays) {
    const ProgramRun run = runRecorded(*output_, command_);
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    expectTrackHolds(run, noise_);
    EXPECT_EQ(tqtest::differences(noise_, run.mix.trimmed()), kNothing) << run.end.text();
}

const std::vector<std::string> kAplay{"aplay", "-q", "-D", "cap"};
const std::vector<std::string> kAplayMmap{"aplay", "-q", "-M", "-D", "cap"};
const std::vector<std::string> kFfplay{"ffplay", "-nodisp", "-autoexit", "-loglevel", "error"};

const auto kPlayers = testing::Values(
    Player{"aplay", kAlsa, kAplay}, Player{"aplayMmap", kAlsa, kAplayMmap},
    Player{"sox", kAlsa, {"sox", "-q"}, {"-t", "alsa", "cap"}},
    Player{"soxPulse", kPulse, {"sox", "-q"}, {"-t", "pulseaudio", "cap"}},
    Player{"paplay", kPulse, {"paplay"}},
    Player{
        "mpvPulse", kPulse, {"mpv", "--no-config", "--no-video", "--really-quiet", "--ao=pulse"}},
    Player{"ffplay", kSdl, kFfplay}, Player{"paplayOnPipeWire", kPipeWire, {"paplay"}});
INSTANTIATE_TEST_SUITE_P(Debian, PlayersTest, kPlayers, nameOf);
INSTANTIATE_TEST_SUITE_P(Debian, RecordedPlayersTest, kPlayers, nameOf);

constexpr SoundFormat kOfMix{.rate = 44100};

INSTANTIATE_TEST_SUITE_P(Debian, MixedPlayersTest,
                         testing::Values(Player{"aplay", kAlsa, kAplay, {}, kOfMix},
                                         Player{"aplayMmap", kAlsa, kAplayMmap, {}, kOfMix},
                                         Player{"paplay", kPulse, {"paplay"}, {}, kOfMix},
                                         Player{"ffplay", kSdl, kFfplay, {}, kOfMix},
                                         Player{"pwPlay", kPipeWire, {"pw-play"}, {}, kOfMix}),
                         nameOf);

TEST(TrackFaultsTest, OneTrackThatHoldsAllIsRight) {
    const Sound noise = tqtest::markedNoise({}, 500);
    Sound track = tqtest::silence({}, 100);
    track.bytes += noise.bytes;
    const ProgramRun run{.end = {}, .heard = {}, .tracks = {{"track-1.wav", track}}};
    EXPECT_EQ(trackFaults(run, noise), kNothing);
}

TEST(TrackFaultsTest, AMissingFrameASecondTrackAndNoTrackAreFaults) {
    const Sound noise = tqtest::markedNoise({}, 500);
    Sound track = noise.part(0, 250);
    track.bytes += noise.part(251, 249).bytes;
    EXPECT_EQ(trackFaults({.end = {}, .heard = {}, .tracks = {{"a", track}}}, noise),
              std::vector<std::string>{"1 frames missing at frame 250, where 250 is due"});
    EXPECT_EQ(trackFaults({.end = {}, .heard = {}, .tracks = {{"a", noise}, {"b", noise}}}, noise),
              std::vector<std::string>{"2 tracks instead of one: a b"});
    EXPECT_EQ(trackFaults({}, noise), std::vector<std::string>{"0 tracks instead of one:"});
}

}  // namespace
}  // namespace programruns
