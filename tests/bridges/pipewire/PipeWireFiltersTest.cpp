#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>

#include "bridges/programs/ProgramRun.h"
#include "support/sound/Comparison.h"

// Programs that play through filters of PipeWire: what their ports play is heard as bare, and is
// their track.

namespace programruns {
namespace {

using tqtest::Sound;

const std::vector<std::string> kNothing;
constexpr tqtest::SoundFormat kStereo{
    .rate = 48000, .channels = 2, .encoding = tqtest::Encoding::F32};
constexpr double kStep16 = 1.0 / 32768;

/// The largest difference between samples, which have to be equally many.
double largestDifference(const Sound& wanted, const Sound& got, double level = 1,
                         std::size_t from = 0) {
    double largest = wanted.frames() == got.frames() ? 0 : 99;
    const auto channels = static_cast<std::size_t>(wanted.format.channels);
    for (std::size_t i = from * channels; largest < 1 && i < wanted.frames() * channels; ++i) {
        largest = std::max(largest, std::abs(wanted.value(i / channels, i % channels) * level -
                                             got.value(i / channels, i % channels)));
    }
    return largest;
}

class PipeWireFiltersTest : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    }
    std::vector<std::string> player(const Sound& sound,
                                    const std::vector<std::string>& options = {}) {
        const std::string file = output_.folder().file("sound.raw");
        std::ofstream(file, std::ios::binary) << sound.bytes;
        std::vector<std::string> command{TQ_TEST_PIPEWIRE_FILTER_PLAYER, file,
                                         std::to_string(sound.format.channels)};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }
    /// Plays noise with those options; it is to be heard as it is, and to be the one track.
    ProgramRun expectWhole(const std::vector<std::string>& options) {
        const Sound noise = tqtest::markedNoise(kStereo, 48000);
        ProgramRun run = runRecorded(output_, player(noise, options));
        EXPECT_EQ(run.end.code, 0) << run.end.text();
        // The monitor is heard with 16 bits.
        EXPECT_LE(largestDifference(noise, run.heard), 2 * kStep16) << run.heard.frames();
        EXPECT_EQ(run.tracks.size(), 1U) << run.end.text();
        for (const auto& [name, track] : run.tracks) {
            EXPECT_LE(largestDifference(noise, track.trimmed()), 2 * kStep16)
                << track.trimmed().frames() << " frames\n"
                << run.end.text();
        }
        return run;
    }

    ServerOutput<tqtest::PipeWireServer> output_;
};

TEST_F(PipeWireFiltersTest, WhatItPlaysIsHeardAsBareAndIsTheTrack) {
    const ProgramRun run = expectWhole({});
    ASSERT_EQ(run.tracks.size(), 1U);
    EXPECT_NE(run.tracks.begin()->first.find("filterplayer"), std::string::npos)
        << run.tracks.begin()->first;
}

TEST_F(PipeWireFiltersTest, AFilterWithItsOwnConnectionIsRecordedAsWell) {
    expectWhole({"simple"});
}

TEST_F(PipeWireFiltersTest, BuffersThatAreQueuedAreRecordedAsWell) {
    expectWhole({"queue"});
}

TEST_F(PipeWireFiltersTest, APortThatIsLeftOutInEverySecondCycleIsSilentThen) {
    const Sound noise = tqtest::markedNoise(kStereo, 48000);
    const ProgramRun run = runRecorded(output_, player(noise, {"gaps"}));
    ASSERT_EQ(run.tracks.size(), 1U) << run.end.text();
    const Sound track = run.tracks.begin()->second.trimmed();
    ASSERT_EQ(track.frames(), noise.frames());
    EXPECT_LE(largestDifference(run.heard, track), 2 * kStep16);
    std::size_t silent = 0;
    for (std::size_t frame = 0; frame < track.frames(); ++frame) {
        silent += track.value(frame, 1) == 0 ? 1 : 0;
    }
    EXPECT_GT(silent, noise.frames() / 3);
}

TEST_F(PipeWireFiltersTest, DuckingIsHeardInFullBehindItsRamp) {
    const Sound noise = tqtest::markedNoise(kStereo, 48000);
    const ProgramRun run = runRecorded(output_, player(noise), {"--duck=-20"});
    constexpr std::size_t kRamp = 4096;
    EXPECT_LE(largestDifference(noise, run.heard, 0.1, kRamp), 2 * kStep16) << run.end.text();
}

}  // namespace
}  // namespace programruns
