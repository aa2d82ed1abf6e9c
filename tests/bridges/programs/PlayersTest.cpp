#include <gtest/gtest.h>

#include <ostream>

#include "bridges/programs/ProgramRun.h"
#include "support/sound/Comparison.h"

// Players of the distribution: what they play is the same at every run, and the same under the
// recorder.

namespace programruns {
namespace {

using tqtest::Sound;
using tqtest::SoundFormat;

const std::vector<std::string> kNothing;

struct Player {
    std::string name;
    std::unique_ptr<Output> (*makeOutput)();
    std::vector<std::string> command;      ///< the file that it plays comes behind it
    std::vector<std::string> behind = {};  ///< and this behind the file
};

void PrintTo(const Player& player, std::ostream* out) {
    *out << player.name;
}

template <typename Kind>
std::unique_ptr<Output> make() {
    return std::make_unique<Kind>();
}

constexpr auto kAlsa = make<FileOutput<tqtest::AlsaFilePcm>>;
constexpr auto kPulse = make<ServerOutput<tqtest::PulseServer>>;
constexpr auto kPipeWire = make<ServerOutput<tqtest::PipeWireServer>>;
constexpr auto kSdl = make<FileOutput<tqtest::SdlDisk>>;

class PlayersTest : public testing::TestWithParam<Player> {
  protected:
    PlayersTest() : output_(GetParam().makeOutput()), command_(GetParam().command) {
        const std::string file = output_->folder().file("noise.wav");
        writeWav(noise_, file);
        command_.push_back(file);
        command_.insert(command_.end(), GetParam().behind.begin(), GetParam().behind.end());
    }

    const Sound noise_ = tqtest::markedNoise({}, 24000);
    std::unique_ptr<Output> output_;
    std::vector<std::string> command_;
};

TEST_P(PlayersTest, BareItIsHeardFrameForFrameAtEveryRun) {
    const ProgramRun first = runBare(*output_, command_);
    EXPECT_EQ(first.end.code, 0) << first.end.text();
    EXPECT_EQ(tqtest::differences(noise_, first.heard), kNothing);
    expectSameSound(first, runBare(*output_, command_), GetParam().name);
}

TEST_P(PlayersTest, UnderTheRecorderItSoundsAsBare) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    expectSameSoundAsBare(*output_, command_);
}

INSTANTIATE_TEST_SUITE_P(
    Debian, PlayersTest,
    testing::Values(Player{"aplay", kAlsa, {"aplay", "-q", "-D", "cap"}},
                    Player{"aplayMmap", kAlsa, {"aplay", "-q", "-M", "-D", "cap"}},
                    Player{"sox", kAlsa, {"sox", "-q"}, {"-t", "alsa", "cap"}},
                    Player{"soxPulse", kPulse, {"sox", "-q"}, {"-t", "pulseaudio", "cap"}},
                    Player{"paplay", kPulse, {"paplay"}},
                    Player{"mpvPulse",
                           kPulse,
                           {"mpv", "--no-config", "--no-video", "--really-quiet", "--ao=pulse"}},
                    Player{
                        "ffplay", kSdl, {"ffplay", "-nodisp", "-autoexit", "-loglevel", "error"}},
                    Player{"paplayOnPipeWire", kPipeWire, {"paplay"}}),
    [](const testing::TestParamInfo<Player>& each) { return each.param.name; });

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
