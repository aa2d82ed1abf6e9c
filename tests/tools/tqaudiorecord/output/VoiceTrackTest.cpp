#include "output/VoiceTrack.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <vector>

#include "SinkFixture.h"

namespace {

using namespace tqrecorder;
using namespace tqrecorder::test;

constexpr std::size_t kMixBlock = 441;
/// What programs play is in their tracks later than it is heard: so the microphone is laid there.
constexpr std::size_t kLaterFrames = 4256;
/// The same of a program of the platform.
constexpr std::size_t kPlatformLaterFrames = 970;

/// Blocks of 10 ms of a mix and of a microphone, both constant, and what comes out.
class Voices : public testing::Test {
  protected:
    void begin(bool isInMix) {
        track_.emplace(
            [this](const Process& process, const Block& block) {
                auto& out = out_[{process.id, block.track}];
                lastStamps_[block.track] = block.microseconds;
                const double wanted = static_cast<double>(block.microseconds - kStart) * 44.1e-3;
                const std::size_t width = block.format.bitsPerChannel / 8;
                out.resize(std::max(out.size(), static_cast<std::size_t>(std::llround(wanted))));
                for (std::size_t at = 0; at < block.frames.size();
                     at += block.format.frameBytes()) {
                    out.push_back(valueOf(block.frames.subspan(at, width)));
                }
            },
            [this](const Process& process, std::uint64_t bytes) { lost_[process.id] += bytes; },
            isInMix);
    }
    static double valueOf(std::span<const std::byte> sample) {
        if (sample.size() == 2) {
            std::int16_t value = 0;
            std::memcpy(&value, sample.data(), 2);
            return value / 32768.0;
        }
        float value = 0;
        std::memcpy(&value, sample.data(), 4);
        return static_cast<double>(value);
    }
    void mix(const Process& process, int from, int to, std::int16_t level = 8192) {
        const std::vector<std::int16_t> samples(2 * kMixBlock, level);
        for (int block = from; block < to; ++block) {
            track_->block(process, {.track = 0,
                                    .unit = {},
                                    .format = kMixFormat,
                                    .microseconds = at(static_cast<std::size_t>(block) * kMixBlock),
                                    .frames = std::as_bytes(std::span(samples))});
        }
    }
    void hear(int from, int to, float level = 0.125F) {
        const std::vector<float> samples(kMixBlock, level);
        for (int block = from; block < to; ++block) {
            track_->heard({at(static_cast<std::size_t>(block) * kMixBlock), 1, samples, true});
        }
    }
    /// Ends a turn.
    void turn(bool isAll = true) { track_->turnEnded(isAll); }
    std::vector<double>& out(int process, int track) { return out_[{process, track}]; }

    std::optional<VoiceTrack> track_;
    std::map<std::pair<int, int>, std::vector<double>> out_;
    std::map<int, std::uint64_t> lost_;        ///< bytes
    std::map<int, std::uint64_t> lastStamps_;  ///< by track
    const Process game_ = process(1, "game", true);
    const Process other_ = process(2, "other", false);
};

TEST_F(Voices, ItIsATrackOfItsOwnAndTheMixIsAsItWas) {
    begin(false);
    hear(0, 5);
    for (int block = 0; block < 100; ++block) {
        mix(game_, block, block + 1);
        hear(block + 5, block + 6);
    }
    const auto& voice = out(1, kMicrophoneTrack);
    EXPECT_EQ(voice.at(kLaterFrames - 20), 0.0);
    EXPECT_EQ(voice.at(kLaterFrames + 20), 0.125);
    EXPECT_EQ(voice.back(), 0.125);
    for (const double value : out(1, 0)) {
        ASSERT_EQ(value, 0.25);
    }
}

TEST_F(Voices, AFirstBlockThatIsToldLateLiesWhereThoseBehindItSay) {
    begin(false);
    const std::vector<float> samples(kMixBlock, 0.125F);
    // Told 14, 13, 12 ms late and so on, until the earliest is known.
    for (std::size_t block = 0; block < 20; ++block) {
        const std::uint64_t late = 1000 * (block < 14 ? 14 - block : 0);
        track_->heard({at(block * kMixBlock) + late, 1, samples, true});
    }
    mix(game_, 0, 20);
    const auto& voice = out(1, kMicrophoneTrack);
    EXPECT_EQ(voice.at(kLaterFrames - 20), 0.0);
    EXPECT_EQ(voice.at(kLaterFrames + 20), 0.125);
}

TEST_F(Voices, AHoleBeforeTheMixIsAHoleInTheTrack) {
    begin(false);
    hear(0, 5);
    hear(15, 20);
    mix(game_, 0, 20);
    const auto& voice = out(1, kMicrophoneTrack);
    EXPECT_EQ(voice.at(kLaterFrames + 20), 0.125);
    EXPECT_EQ(voice.at(kLaterFrames + 10 * kMixBlock), 0.0);
    EXPECT_EQ(voice.at(kLaterFrames + 16 * kMixBlock), 0.125);
}

TEST_F(Voices, StampsFollowTheHostsTimeAsThoseOfOtherStreamsDo) {
    constexpr double kSlow = 1.0005;
    constexpr std::size_t kBlocks = 12'000;
    for (const bool isInMix : {false, true}) {
        begin(isInMix);
        const std::vector<std::int16_t> samples(2 * kMixBlock, 8192);
        const auto stampOf = [](std::size_t block) {
            return kStart + static_cast<std::uint64_t>(1e4 * kSlow * static_cast<double>(block));
        };
        for (std::size_t block = 0; block < kBlocks; ++block) {
            track_->block(game_, {.track = 0,
                                  .unit = {},
                                  .format = kMixFormat,
                                  .microseconds = stampOf(block),
                                  .frames = std::as_bytes(std::span(samples))});
            hear(static_cast<int>(block), static_cast<int>(block) + 1);
        }
        // What is heard is laid later, and the last comes a block behind its stamp.
        constexpr double kLater = kLaterFrames / 44.1e-3;
        EXPECT_NEAR(static_cast<double>(lastStamps_[kMicrophoneTrack]),
                    static_cast<double>(at((kBlocks - 1) * kMixBlock)) + kLater, 10'000);
        EXPECT_NEAR(static_cast<double>(lastStamps_[0]), static_cast<double>(stampOf(kBlocks - 1)),
                    25'000);
    }
}

TEST_F(Voices, BesideAProgramOfThePlatformItIsLaidLessLate) {
    Process game = game_;
    game.usesPlatform = true;
    begin(false);
    mix(game, 0, 20);
    hear(0, 20);
    const auto& voice = out(1, kMicrophoneTrack);
    EXPECT_EQ(voice.at(kPlatformLaterFrames - 20), 0.0);
    EXPECT_EQ(voice.at(kPlatformLaterFrames + 20), 0.125);
}

TEST_F(Voices, InTheMixItIsAddedWhereItWasHeard) {
    begin(true);
    hear(0, 20, 0);
    mix(game_, 0, 30);
    hear(20, 40);
    mix(game_, 30, 60);
    hear(40, 60);
    track_->ended(game_);
    const auto& all = out(1, 0);
    ASSERT_GE(all.size(), 60 * kMixBlock);
    EXPECT_EQ(all.at(10 * kMixBlock), 0.25);
    EXPECT_EQ(all.at(20 * kMixBlock + kLaterFrames - 20), 0.25);
    EXPECT_EQ(all.at(20 * kMixBlock + kLaterFrames + 20), 0.375);
    EXPECT_EQ(all.at(59 * kMixBlock), 0.375);
}

TEST_F(Voices, ItLeavesAProcessThatIsSilentForTheFirstThatSounds) {
    begin(false);
    mix(game_, 0, 20, 0);
    hear(0, 20);
    mix(other_, 20, 40);
    hear(20, 40);
    const std::size_t before = out(1, kMicrophoneTrack).size();
    EXPECT_GT(before, 0U);
    EXPECT_EQ(out(2, kMicrophoneTrack).back(), 0.125);
    mix(game_, 40, 60);
    hear(40, 60);
    EXPECT_EQ(out(1, kMicrophoneTrack).size(), before) << "it stays there";
}

TEST_F(Voices, WhatIsHeardWhileNothingPlaysIsCounted) {
    begin(false);
    hear(0, 400);
    EXPECT_NEAR(track_->waitsForSeconds(), 3, 0.02) << "all but the last second";
    mix(game_, 400, 450);
    hear(400, 450);
    EXPECT_EQ(track_->waitsForSeconds(), 0);
    track_->ended(game_);
    hear(450, 650);
    EXPECT_NEAR(track_->waitsForSeconds(), 1, 0.02);
    mix(other_, 650, 700);
    EXPECT_NEAR(track_->leftOutSeconds(), 4, 0.04);
    track_->ended(other_);
    hear(700, 750);
    track_->finish();
    EXPECT_NEAR(track_->leftOutSeconds(), 4.5, 0.04) << "the end waits for no mix";
}

TEST_F(Voices, WithoutAMicrophoneNothingIsMissed) {
    begin(false);
    const std::vector<float> silence(kMixBlock);
    for (std::size_t block = 0; block < 400; ++block) {
        track_->heard({at(block * kMixBlock), 1, silence, false});
    }
    EXPECT_EQ(track_->waitsForSeconds(), 0);
}

TEST_F(Voices, TooLoudASumIsCut) {
    begin(true);
    mix(game_, 0, 1, 32000);
    hear(0, 20, 0.5F);
    mix(game_, 1, 20, 32000);
    track_->finish();
    EXPECT_NEAR(out(1, 0).at(10 * kMixBlock), 1, 0.001);
}

TEST_F(Voices, AMixDoesNotWaitForAMicrophoneThatSaysNothing) {
    begin(true);
    mix(game_, 0, 100);
    turn();
    EXPECT_TRUE(out(1, 0).empty()) << "it was not asked behind them";
    turn();
    EXPECT_GE(out(1, 0).size(), 40 * kMixBlock);
    EXPECT_EQ(out(1, 0).back(), 0.25);
}

TEST_F(Voices, WhatWaitedWhileTheRecorderWasHeldUpIsInTheMixWithTheVoice) {
    begin(true);
    hear(0, 10);
    mix(game_, 0, 10);
    turn();
    // The microphone is read first, and the mix in pieces.
    hear(10, 600);
    turn(false);
    mix(game_, 10, 300);
    turn(false);
    hear(600, 620);
    mix(game_, 300, 620);
    turn();
    turn();
    track_->ended(game_);
    const auto& all = out(1, 0);
    ASSERT_GE(all.size(), 620 * kMixBlock);
    for (std::size_t frame = kLaterFrames + 20; frame < 620 * kMixBlock; ++frame) {
        ASSERT_EQ(all.at(frame), 0.375) << frame;
    }
    EXPECT_EQ(lost_[1], 0U);
}

TEST_F(Voices, AVoiceThatIsReadLaterThanItsMixIsInIt) {
    begin(true);
    hear(0, 10);
    mix(game_, 0, 400);
    turn();
    hear(10, 400);
    mix(game_, 400, 401);
    turn();
    EXPECT_EQ(out(1, 0).at(390 * kMixBlock), 0.375);
}

TEST_F(Voices, WhatWaitsBesideAMixThatIsReadLateIsBounded) {
    begin(true);
    mix(game_, 0, 10);
    hear(0, 70'000);
    turn(false);
    EXPECT_GE(out(1, 0).size(), 9'000 * kMixBlock);
    EXPECT_LE(out(1, 0).size(), 11'000 * kMixBlock);
}

TEST_F(Voices, WhatOfAMixComesBehindSilenceThatStandsForItIsLost) {
    begin(true);
    mix(game_, 0, 10);
    hear(0, 500);
    turn();
    const std::size_t sent = out(1, 0).size();
    mix(game_, 10, 600);
    turn();
    EXPECT_EQ(lost_[1], (sent - 10 * kMixBlock) * kMixFormat.frameBytes());
    track_->finish();
    EXPECT_EQ(out(1, 0).at(sent), 0.375) << "what follows is whole";
}

TEST_F(Voices, InAMixThatStandsStillItIsHeardAllTheSame) {
    begin(true);
    hear(0, 10);
    mix(game_, 0, 10);
    hear(10, 500);
    turn();
    const auto& all = out(1, 0);
    EXPECT_GE(all.size(), 300 * kMixBlock);
    EXPECT_EQ(all.at(200 * kMixBlock), 0.125);
    mix(game_, 490, 500);
    hear(500, 520);
    track_->finish();
    EXPECT_EQ(all.at(495 * kMixBlock), 0.375);
}

TEST_F(Voices, WhenItsProcessEndsItGoesOnWithTheNext) {
    begin(false);
    mix(game_, 0, 10);
    hear(0, 10);
    mix(other_, 0, 10);
    track_->ended(game_);
    mix(other_, 10, 12);
    hear(10, 20);
    EXPECT_TRUE(out(1, 0).size() == 10 * kMixBlock);
    EXPECT_EQ(out(2, kMicrophoneTrack).back(), 0.125);
}

}  // namespace
