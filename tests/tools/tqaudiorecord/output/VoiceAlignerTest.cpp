#include "output/VoiceAligner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace {

using tqrecorder::VoiceAligner;

constexpr double kRate = 2000;
constexpr std::size_t kBlock = 20;

/// A microphone whose clock goes `fast` times as fast as the other, and whose blocks say when they
/// were heard up to that many frames late. It hears an impulse every ten seconds of the other
/// clock.
class Voice {
  public:
    Voice(double fast, double latest) : fast_(fast), latest_(latest) {}

    void hear(double seconds) {
        for (const double end = heard_ + seconds * kRate; heard_ < end; heard_ += kBlock) {
            std::vector<float> block(kBlock);
            for (std::size_t i = 0; i < kBlock; ++i) {
                block[i] = static_cast<float>(soundAt((heard_ + static_cast<double>(i)) / fast_));
            }
            random_ = random_ * 6364136223846793005U + 1442695040888963407U;
            const double late = latest_ * static_cast<double>(random_ >> 40U) / (1U << 24U);
            aligner_.add(heard_ / fast_ + late, block);
            take();
        }
    }
    /// The microphone is away for so long.
    void away(double seconds) { heard_ += seconds * kRate; }

    VoiceAligner& aligner() { return aligner_; }
    /// How far impulses lay from their places, in frames, of those heard since the last call.
    [[nodiscard]] double takeFarthest() { return std::exchange(farthest_, 0); }
    [[nodiscard]] int impulses() const { return impulses_; }

  private:
    static constexpr double kEvery = 10 * kRate;

    static double soundAt(double frame) {
        // A bump of eight frames, so that its middle can be told between two.
        const double away = std::remainder(frame, kEvery);
        return std::abs(away) < 8 ? std::cos(away / 8 * std::numbers::pi / 2) : 0;
    }
    void take() {
        const std::int64_t first = aligner_.next();
        const std::vector<float> frames = aligner_.take();
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const double frame = static_cast<double>(first) + static_cast<double>(i);
            weight_ += std::abs(frames[i]);
            moment_ += std::abs(frames[i]) * std::remainder(frame, kEvery);
            if (weight_ > 1 && std::remainder(frame, kEvery) > kRate / 4) {
                farthest_ = std::max(farthest_, std::abs(moment_ / weight_));
                ++impulses_;
                weight_ = moment_ = 0;
            }
        }
    }

    const double fast_;
    const double latest_;
    VoiceAligner aligner_{1, kRate};
    double heard_ = 0;
    std::uint64_t random_ = 1;
    double weight_ = 0;
    double moment_ = 0;
    double farthest_ = 0;
    int impulses_ = 0;
};

constexpr double kMillisecond = kRate / 1000;

TEST(VoiceAligner, AClockThatDriftsByAThousandthIsFollowedForAnHour) {
    for (const double fast : {1.001, 0.999}) {
        Voice voice(fast, 4 * kMillisecond);
        voice.hear(60);
        EXPECT_LT(voice.takeFarthest(), 20 * kMillisecond) << "while it learns";
        voice.hear(3540);
        EXPECT_LT(voice.takeFarthest(), 5 * kMillisecond) << fast;
        EXPECT_GT(voice.impulses(), 350);
        EXPECT_EQ(voice.aligner().steps(), 0U) << "nothing was made up or left out";
        EXPECT_NEAR(voice.aligner().ratio(), fast, 100e-6);
    }
}

TEST(VoiceAligner, SamplesPassAsTheyAreWhileTheClocksAgree) {
    VoiceAligner aligner(2, kRate);
    float next = 1;
    float due = 1;
    for (std::size_t block = 0; block < 2000; ++block) {
        std::vector<float> frames(2 * kBlock);
        for (std::size_t i = 0; i < kBlock; ++i, ++next) {
            frames[2 * i] = next;
            frames[2 * i + 1] = -next;
        }
        aligner.add(100 + static_cast<double>(block * kBlock + block % 3), frames);
        const std::int64_t first = aligner.next();
        const std::vector<float> taken = aligner.take();
        ASSERT_EQ(first, 99 + static_cast<std::int64_t>(due));
        for (std::size_t i = 0; i < taken.size(); i += 2, ++due) {
            ASSERT_EQ(taken[i], due);
            ASSERT_EQ(taken[i + 1], -due);
        }
    }
    EXPECT_GT(due, 1999.0F * kBlock);
}

TEST(VoiceAligner, WhatIsAwayForAWhileIsSilenceOfThatLength) {
    for (const double seconds : {0.3, 40.0}) {
        Voice voice(1, 0);
        voice.hear(15);
        EXPECT_LT(voice.takeFarthest(), 3.0) << "of the first only a half is heard";
        voice.away(seconds);
        voice.hear(45);
        EXPECT_LT(voice.takeFarthest(), 1.0) << seconds;
        EXPECT_GE(voice.impulses(), 5);
        EXPECT_EQ(voice.aligner().steps(), 1U);
    }
}

TEST(VoiceAligner, WhatWasHeardBeforeTheOtherClockBeganIsLeftOut) {
    VoiceAligner aligner(1, kRate);
    std::vector<float> frames(200);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        frames[i] = static_cast<float>(i);
    }
    aligner.add(-300, frames);
    EXPECT_TRUE(aligner.take().empty());
    aligner.add(-100, frames);
    EXPECT_EQ(aligner.next(), 0);
    EXPECT_EQ(aligner.take().front(), 100.0F);
}

}  // namespace
