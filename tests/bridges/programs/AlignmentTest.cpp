#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "bridges/programs/Player.h"
#include "bridges/programs/RecordedRun.h"
#include "support/servers/JackServer.h"

// Two streams that begin at different times are as far apart in the mix as they are heard. Both
// distances are counted in frames that were played, so that a busy machine changes neither.

namespace programruns {
namespace {

using tqtest::Sound;

constexpr double kLargestDifference = 0.06;

/// In seconds from the first sound to the next one behind a silence.
std::optional<double> distanceIn(const Sound& sound) {
    const auto silence = static_cast<std::size_t>(sound.format.rate) / 4;
    constexpr double kHeard = 0.01;
    std::optional<std::size_t> first;
    std::size_t last = 0;
    for (std::size_t frame = 0; frame < sound.frames(); ++frame) {
        if (std::abs(sound.value(frame, 0)) < kHeard && std::abs(sound.value(frame, 1)) < kHeard) {
            continue;
        }
        if (first && frame - last > silence) {
            return static_cast<double>(frame - *first) / sound.format.rate;
        }
        first = first.value_or(frame);
        last = frame;
    }
    return {};
}

class AlignmentTest : public testing::TestWithParam<Player> {
  protected:
    void SetUp() override { skipUnlessPreloading(); }
};

TEST_P(AlignmentTest, InTheMixASecondStreamBeginsWhenItIsHeard) {
    const std::unique_ptr<Output> output = GetParam().makeOutput();
    const ProgramRun run = runRecorded(*output, GetParam().command);
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    EXPECT_EQ(run.tracks.size(), 2U) << run.end.text();
    const std::optional<double> heard = distanceIn(run.heard);
    const std::optional<double> mixed = distanceIn(run.mix);
    ASSERT_TRUE(heard && mixed) << run.end.text();
    EXPECT_GT(*heard, 0.5);
    EXPECT_NEAR(*mixed, *heard, kLargestDifference) << run.end.text();
}

const auto kJack = make<ServerOutput<tqtest::JackServer>>;

INSTANTIATE_TEST_SUITE_P(
    Own, AlignmentTest,
    testing::Values(Player{"alsa", kPulse, {TQ_TEST_TWO_ALSA}},
                    Player{"pulse", kPulse, {TQ_TEST_TWO_PULSE}},
                    Player{"sdl", kPulse, {"env", "SDL_AUDIODRIVER=pulseaudio", TQ_TEST_TWO_SDL}},
                    Player{"jack", kJack, {TQ_TEST_TWO_JACK}},
                    Player{"pipewire", kPipeWire, {TQ_TEST_TWO_PIPEWIRE}}),
    nameOf);

}  // namespace
}  // namespace programruns
