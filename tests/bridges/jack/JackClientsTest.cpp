#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>

#include "bridges/programs/ProgramRun.h"
#include "support/servers/JackServer.h"
#include "support/sound/Comparison.h"

// Programs that play through JACK: what their ports play is heard as bare, and is their track.

namespace programruns {
namespace {

using tqtest::Sound;

const std::vector<std::string> kNothing;
constexpr tqtest::SoundFormat kStereo{
    .rate = 48000, .channels = 2, .encoding = tqtest::Encoding::F32};
/// A track of 16 bits is rounded.
constexpr double kRounding = 2.0 / 32768;

/// The largest difference between samples, which have to be equally many.
double largestDifference(const Sound& wanted, const Sound& got) {
    double largest = wanted.frames() == got.frames() ? 0 : 99;
    const auto channels = static_cast<std::size_t>(wanted.format.channels);
    for (std::size_t i = 0; largest < 1 && i < wanted.frames() * channels; ++i) {
        largest = std::max(largest, std::abs(wanted.value(i / channels, i % channels) -
                                             got.value(i / channels, i % channels)));
    }
    return largest;
}

/// Fails unless there is one track, and the sound is all that is in it.
void expectOneTrack(const ProgramRun& run, const Sound& sound) {
    ASSERT_EQ(run.tracks.size(), 1U) << run.end.text();
    const Sound track = run.tracks.begin()->second.trimmed();
    EXPECT_EQ(track.frames(), sound.frames()) << run.end.text();
    EXPECT_LE(largestDifference(sound, track), kRounding);
}

class JackClientsTest : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    }
    /// The player's command for that sound.
    static std::vector<std::string> player(const Output& output, const Sound& sound,
                                           std::vector<std::string> options = {}) {
        const std::string file = output.folder().file("sound.raw");
        std::ofstream(file, std::ios::binary) << sound.bytes;
        std::vector<std::string> command{TQ_TEST_JACK_PLAYER, file,
                                         std::to_string(sound.format.channels)};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }
    /// Plays noise with those options; it has to be heard, and to be the one track.
    ProgramRun expectWhole(const std::vector<std::string>& options) {
        const Sound noise = tqtest::markedNoise(kStereo, 48000);
        ProgramRun run = runRecorded(output_, player(output_, noise, options));
        EXPECT_EQ(run.end.code, 0) << run.end.text();
        EXPECT_EQ(tqtest::differences(noise, run.heard), kNothing);
        expectOneTrack(run, noise);
        return run;
    }

    ServerOutput<tqtest::JackServer> output_;
};

TEST_F(JackClientsTest, WhatAProcessCallbackPlaysIsHeardAsBareAndIsTheTrack) {
    const ProgramRun run = expectWhole({});
    ASSERT_EQ(run.tracks.size(), 1U);
    EXPECT_NE(run.tracks.begin()->first.find("player"), std::string::npos)
        << run.tracks.begin()->first;
}

TEST_F(JackClientsTest, WhatAProcessThreadPlaysIsHeardAsBareAndIsTheTrack) {
    expectWhole({"thread"});
}

TEST_F(JackClientsTest, PortsThatComeAfterTheActivationAreOneTrack) {
    expectWhole({"late"});
}

TEST_F(JackClientsTest, APortThatComesAndGoesLeavesNoHoleInTheOthers) {
    const Sound noise = tqtest::markedNoise(kStereo, 96000);
    const ProgramRun run = runRecorded(output_, player(output_, noise, {"more"}));
    EXPECT_EQ(tqtest::differences(noise, run.heard), kNothing);
    // Two channels, then three, then two again.
    std::size_t frames = 0;
    for (const auto& [name, track] : run.tracks) {
        for (std::size_t frame = 0; frame < track.frames(); ++frame) {
            frames += track.isSilent(frame) ? 0 : 1;
        }
    }
    EXPECT_EQ(frames, noise.frames()) << run.end.text();
}

TEST_F(JackClientsTest, DuckingIsHeardInFullBehindItsRamp) {
    const Sound noise = tqtest::markedNoise(kStereo, 48000);
    const ProgramRun run = runRecorded(output_, player(output_, noise), {"--duck=-20"});
    ASSERT_EQ(run.heard.frames(), noise.frames()) << run.end.text();
    double largest = 0;
    constexpr std::size_t kRamp = 4096;
    for (std::size_t frame = kRamp; frame < noise.frames(); ++frame) {
        largest =
            std::max(largest, std::abs(run.heard.value(frame, 1) - noise.value(frame, 1) * 0.1));
    }
    EXPECT_LT(largest, 1e-5);
}

}  // namespace
}  // namespace programruns
