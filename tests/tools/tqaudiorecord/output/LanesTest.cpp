// What is kept of a recording to be shown.

#include "output/Lanes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SinkFixture.h"

namespace tqrecorder::test {
namespace {

class LanesTest : public SinkFixture {
  protected:
    /// A block of a track, of a fifth of a second.
    void track(int number, const std::string& unit, std::size_t frame,
               const Process& who = process(1, "game")) {
        const auto bytes = mixTone(441, 8820);
        lanes_.block(who, {number, unit, kMixFormat, at(frame), bytes});
    }
    [[nodiscard]] std::vector<std::string> titles() const {
        std::vector<std::string> all;
        for (const Lane* lane : lanes_.inOrder()) {
            all.push_back(lanes_.titleOf(*lane));
        }
        return all;
    }
    Lanes lanes_{names_, true};
};

TEST_F(LanesTest, AMixBeginsWithItsProcessAndEachTrackWithItself) {
    track(1, "music", 4410);
    play(lanes_, game_, 8820, 44'100);
    lanes_.finish();
    ASSERT_EQ(titles(), (std::vector<std::string>{"mix", "track-1-music"}));
    const std::vector<const Lane*> all = lanes_.inOrder();
    EXPECT_EQ(all[0]->beganAt, at(4410));
    EXPECT_EQ(all[1]->beganAt, at(4410));
    EXPECT_EQ(lanes_.origin(), at(4410));
    EXPECT_NEAR(all[0]->sound.seconds(), 0.9, 1e-3);
    EXPECT_NEAR(all[1]->sound.seconds(), 0.2, 1e-3);
}

TEST_F(LanesTest, WhatWasLostIsSilenceOfItsLength) {
    play(lanes_, game_, 0, 4700);
    const auto bytes = mixTone(441, 470);
    Block behind = mixBlock(bytes, at(5640));
    behind.lostFrames = 940;
    lanes_.block(game_, behind);
    lanes_.finish();
    EXPECT_NEAR(lanes_.inOrder()[0]->sound.seconds(), 6110 / 44'100.0, 1e-6);
    EXPECT_EQ(lanes_.inOrder()[0]->clock.gaps(), 1U);
}

TEST_F(LanesTest, ATrackThatGoesOnWithAnotherUnitOrFormatIsAnother) {
    track(1, "music", 0);
    track(1, "voice", 8820);
    const std::vector<std::byte> bytes(4800);
    lanes_.block(game_, {1, "voice", {48000, 1, 16, false}, at(17'640), bytes});
    lanes_.finish();
    EXPECT_EQ(titles(),
              (std::vector<std::string>{"track-1-music", "track-1-voice", "track-1-voice"}));
    EXPECT_EQ(lanes_.inOrder()[2]->format.sampleRate, 48000);
}

TEST_F(LanesTest, OfSeveralProcessesEachIsNamedAndTheFirstComesFirst) {
    const Process other = process(2, "other");
    track(2, "voice", 0, other);
    play(lanes_, game_, 0, 4700);
    track(1, "music", 4700);
    lanes_.processEnded(other, {});
    lanes_.finish();
    EXPECT_EQ(titles(), (std::vector<std::string>{"other: track-2-voice", "game: mix",
                                                  "game: track-1-music"}));
    EXPECT_EQ(lanes_.title(), "other");
}

TEST_F(LanesTest, NoMoreAreKeptThanFitAPicture) {
    for (int number = 0; number < 70; ++number) {
        track(1, "unit-" + std::to_string(number), static_cast<std::size_t>(number) * 8820);
    }
    lanes_.finish();
    EXPECT_EQ(lanes_.inOrder().size(), 64U);
    EXPECT_EQ(lanes_.refused(), 6U);
}

TEST_F(LanesTest, FormatsThatNobodyPlaysAreLeftAlone) {
    const std::vector<std::byte> bytes(4096);
    lanes_.block(game_, {1, "a", {0, 2, 16, false}, at(0), bytes});
    lanes_.block(game_, {2, "b", {48000, 70'000, 16, false}, at(0), bytes});
    lanes_.block(game_, {3, "c", {48000, 2, 20, false}, at(0), bytes});
    lanes_.finish();
    for (const Lane* lane : lanes_.inOrder()) {
        EXPECT_EQ(lane->sound.seconds(), 0);
    }
}

TEST_F(LanesTest, LoudnessIsMeasuredWithoutTheSilenceAroundIt) {
    // A sine of half of full scale in both channels: -6.0 dBFS, by the standard's weighting at
    // 997 Hz -6.0 LUFS.
    for (std::size_t second = 0; second < 8; ++second) {
        const auto bytes =
            second < 3 ? mixTone(997, 44'100, second * 44'100) : std::vector<std::byte>(44'100 * 4);
        lanes_.block(game_, mixBlock(bytes, at(second * 44'100)));
    }
    lanes_.finish();
    EXPECT_EQ(lanes_.worth(), Worth::kVoiceAlone) << "no program was heard";
    names_->hear(game_);
    const Lane& mix = *lanes_.inOrder()[0];
    ASSERT_NE(mix.loudness, nullptr);
    ASSERT_TRUE(mix.loudness->integrated());
    EXPECT_NEAR(*mix.loudness->integrated(), -6.0, 0.4);
    EXPECT_NEAR(mix.loudness->truePeak(), 0.5, 0.01);
    EXPECT_EQ(lanes_.worth(), Worth::kSound);
}

TEST_F(LanesTest, SilenceHasNoLoudness) {
    const std::vector<std::byte> bytes(88'200 * 4);
    lanes_.block(game_, mixBlock(bytes, at(0)));
    lanes_.finish();
    EXPECT_FALSE(lanes_.inOrder()[0]->loudness->integrated());
    EXPECT_EQ(lanes_.inOrder()[0]->loudness->truePeak(), 0);
    EXPECT_EQ(lanes_.worth(), Worth::kSilence);
}

TEST_F(LanesTest, APeakBetweenTheSamplesIsFound) {
    // A quarter of the rate, 45 degrees off: no sample is above 0.707 of the peak.
    std::vector<std::int16_t> samples;
    for (int frame = 0; frame < 44'100; ++frame) {
        const double phase = std::numbers::pi / 2 * frame + std::numbers::pi / 4;
        samples.insert(samples.end(), 2, static_cast<std::int16_t>(std::sin(phase) * 32'767));
    }
    const Block block = mixBlock(std::as_bytes(std::span(samples)), at(0));
    lanes_.block(game_, block);
    lanes_.finish();
    EXPECT_NEAR(lanes_.inOrder()[0]->sound.peak(), 0.707, 0.01);
    EXPECT_NEAR(lanes_.inOrder()[0]->loudness->truePeak(), 1.0, 0.06);
}

}  // namespace
}  // namespace tqrecorder::test
