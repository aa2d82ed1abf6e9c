#include "picture/GrowingSpectrogram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "TestWave.h"

namespace tqpicture {
namespace {

constexpr std::size_t kColumns = 1232;
constexpr std::size_t kRows = 150;

/// Noise with tones that come and go.
std::vector<float> sound(std::size_t frames) {
    std::mt19937 random(7);
    std::normal_distribution<float> noise(0, 0.02F);
    std::vector<float> samples = test::sine(1500, 44100, frames, 0.3, 1);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        samples[frame] = (frame / 30'000 % 2 == 0 ? samples[frame] : 0) + noise(random);
    }
    return samples;
}

struct Difference {
    double mean = 0;   ///< dB, over all cells
    double often = 0;  ///< dB, below which 99 of 100 cells are
    std::size_t dataApart = 0;
};

/// Between the spectrograms of that recording, spread over all columns but one.
Difference difference(const std::vector<float>& samples, double start) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, kRows);
    const double wide = static_cast<double>(samples.size()) / (kColumns - 1);
    SpectrogramBuilder builder({kColumns, wide, start * wide, 1, 44100}, scale);
    builder.push(samples.data(), samples.size());
    const LevelGrid expected = builder.finish();
    GrowingSpectrogram growing(1, 44100);
    for (std::size_t frame = 0; frame < samples.size(); frame += 470) {
        growing.push(samples.data() + frame, std::min<std::size_t>(470, samples.size() - frame));
    }
    growing.finish();
    const LevelGrid got = growing.levels(kColumns, wide, start * wide, scale);
    Difference result;
    std::vector<double> all;
    for (std::size_t column = 0; column < kColumns; ++column) {
        for (std::size_t row = 0; row < kRows; ++row) {
            const float a = expected.at(column, row);
            const float b = got.at(column, row);
            result.dataApart += std::isnan(a) != std::isnan(b) ? 1 : 0;
            if (!std::isnan(a) && !std::isnan(b)) {
                all.push_back(std::abs(std::max(a, -100.0F) - std::max(b, -100.0F)));
            }
        }
    }
    std::sort(all.begin(), all.end());
    for (const double one : all) {
        result.mean += one / static_cast<double>(all.size());
    }
    result.often = all.empty() ? 0 : all[all.size() * 99 / 100];
    return result;
}

TEST(GrowingSpectrogram, LooksAsOneOfAKnownLengthDoes) {
    // From shorter than a window to long enough for several mergers.
    for (const std::size_t frames : {500U, 44'100U, 441'000U, 2'000'000U}) {
        const Difference found = difference(sound(frames), 0.4);
        EXPECT_LT(found.mean, 2.5) << frames;
        EXPECT_LT(found.often, 12) << frames;
        EXPECT_EQ(found.dataApart, 0U) << frames;
    }
}

TEST(GrowingSpectrogram, SilenceIsSilenceHoweverItCame) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, kRows);
    const std::vector<float> tone = test::sine(1000, 44100, 44100, 0.5);
    const std::vector<float> zeros(500'000, 0.0F);
    GrowingSpectrogram pushed(1, 44100);
    GrowingSpectrogram told(1, 44100);
    for (GrowingSpectrogram* each : {&pushed, &told}) {
        each->push(tone.data(), tone.size());
        if (each == &pushed) {
            each->push(zeros.data(), zeros.size());
        } else {
            each->pushSilence(zeros.size());
        }
        each->push(tone.data(), tone.size());
        each->finish();
    }
    const double wide = 588'200.0 / 300;
    const LevelGrid a = pushed.levels(300, wide, 0, scale);
    const LevelGrid b = told.levels(300, wide, 0, scale);
    const auto row = static_cast<std::size_t>(scale.positionOf(1000));
    EXPECT_GT(b.at(5, row), -8);
    EXPECT_EQ(b.at(150, row), kSilenceDb);
    EXPECT_GT(b.at(295, row), -8);
    for (std::size_t column = 0; column < 300; ++column) {
        for (std::size_t each = 0; each < kRows; ++each) {
            ASSERT_EQ(a.at(column, each), b.at(column, each)) << column << " " << each;
        }
    }
}

TEST(GrowingSpectrogram, WhatIsCoarsenedShowsTheSameWhereColumnsAreWide) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, kRows);
    const std::vector<float> samples = sound(441'000);
    GrowingSpectrogram growing(1, 44100);
    growing.push(samples.data(), samples.size());
    growing.finish();
    const LevelGrid fine = growing.levels(20, 22'050, 0, scale);
    growing.coarsen(22'050);
    const LevelGrid coarse = growing.levels(20, 22'050, 0, scale);
    double all = 0;
    for (std::size_t column = 0; column < 20; ++column) {
        for (std::size_t row = 0; row < kRows; ++row) {
            all += std::abs(fine.at(column, row) - coarse.at(column, row));
        }
    }
    EXPECT_LT(all / (20 * kRows), 1.5);
}

TEST(GrowingSpectrogram, OfNothingHasNoData) {
    const FrequencyScale scale(FrequencyAxis::kLinear, 22050, 50);
    GrowingSpectrogram growing(2, 44100);
    growing.finish();
    EXPECT_TRUE(std::isnan(growing.levels(5, 100, 0, scale).at(0, 49)));
}

TEST(GrowingSpectrogram, OneFrameIsEnough) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, 50);
    GrowingSpectrogram growing(1, 44100);
    const float one = 0.5F;
    growing.push(&one, 1);
    growing.finish();
    EXPECT_FALSE(std::isnan(growing.levels(1, 1, 0, scale).at(0, 25)));
}

TEST(GrowingSpectrogram, TakesAnySampleRate) {
    for (const double rate : {1.0, 100.0, 768'000.0}) {
        const FrequencyScale scale(FrequencyAxis::kLogarithmic, rate / 2, 64);
        GrowingSpectrogram growing(1, rate);
        const std::vector<float> samples = test::sine(rate / 4, rate, 40'960, 0.5);
        growing.push(samples.data(), samples.size());
        growing.finish();
        const LevelGrid grid = growing.levels(8, 5120, 0, scale);
        std::size_t best = 0;
        for (std::size_t row = 1; row < 64; ++row) {
            best = grid.at(4, row) > grid.at(4, best) ? row : best;
        }
        EXPECT_NEAR(scale.hertzAt(static_cast<double>(best) + 0.5) / rate, 0.25, 0.04) << rate;
    }
}

}  // namespace
}  // namespace tqpicture
