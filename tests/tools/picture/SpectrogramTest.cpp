#include "picture/Spectrogram.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>

#include "TestWave.h"

namespace tqpicture {
namespace {

using test::sine;

std::size_t brightestRow(const LevelGrid& grid, std::size_t column) {
    std::size_t best = 0;
    for (std::size_t row = 1; row < grid.rows(); ++row) {
        if (!(grid.at(column, row) <= grid.at(column, best))) {
            best = row;
        }
    }
    return best;
}

bool hasData(const LevelGrid& grid, std::size_t column) {
    for (std::size_t row = 0; row < grid.rows(); ++row) {
        if (!std::isnan(grid.at(column, row))) {
            return true;
        }
    }
    return false;
}

struct Case {
    FrequencyAxis axis;
    double sampleRate;
    double hertz;
};

void PrintTo(const Case& tone, std::ostream* out) {
    *out << tone.hertz << " Hz of " << tone.sampleRate
         << (tone.axis == FrequencyAxis::kLinear ? " linear" : " logarithmic");
}

class ToneTest : public testing::TestWithParam<Case> {};

TEST_P(ToneTest, IsBrightestAtTheRowOfItsFrequency) {
    const Case& tone = GetParam();
    const FrequencyScale scale(tone.axis, tone.sampleRate / 2, 260);
    const auto frames = static_cast<std::size_t>(tone.sampleRate);
    constexpr std::size_t kColumns = 50;
    SpectrogramBuilder builder(
        {kColumns, static_cast<double>(frames) / kColumns, 0, 1, tone.sampleRate}, scale);
    const std::vector<float> samples = sine(tone.hertz, tone.sampleRate, frames, 0.5);
    builder.push(samples.data(), frames);
    const LevelGrid grid = builder.finish();
    // A row of the grid and a bin of the transform both have a width.
    const double row = scale.positionOf(tone.hertz);
    const double bin = tone.sampleRate / 2048 * 2;
    const double slack =
        2 + std::abs(scale.positionOf(tone.hertz + bin) - scale.positionOf(tone.hertz));
    for (std::size_t column = 2; column + 2 < kColumns; ++column) {
        EXPECT_NEAR(static_cast<double>(brightestRow(grid, column)) + 0.5, row, slack) << column;
        // A sine of half the full scale, at most 1.5 dB lower between two bins of a Hann window.
        const float level = grid.at(column, brightestRow(grid, column));
        EXPECT_LT(level, -5.9);
        EXPECT_GT(level, -7.6);
    }
}

INSTANTIATE_TEST_SUITE_P(Tones, ToneTest,
                         testing::Values(Case{FrequencyAxis::kLogarithmic, 44100, 440},
                                         Case{FrequencyAxis::kLogarithmic, 44100, 12000},
                                         Case{FrequencyAxis::kLogarithmic, 48000, 1000},
                                         Case{FrequencyAxis::kLinear, 44100, 440},
                                         Case{FrequencyAxis::kLinear, 22050, 5000},
                                         Case{FrequencyAxis::kLinear, 8000, 3000}));

TEST(SpectrogramBuilder, ShowsAFullScaleSineAtZeroDecibels) {
    const FrequencyScale scale(FrequencyAxis::kLinear, 22050, 200);
    SpectrogramBuilder builder({10, 4410, 0, 1, 44100}, scale);
    // Exactly on a bin of the 2048-frame transform.
    const std::vector<float> samples = sine(44100.0 / 2048 * 100, 44100, 44100, 1);
    builder.push(samples.data(), 44100);
    const LevelGrid grid = builder.finish();
    EXPECT_NEAR(grid.at(5, brightestRow(grid, 5)), 0, 0.01);
}

TEST(SpectrogramBuilder, ShowsAToneOnlyWhileItSounds) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, 100);
    SpectrogramBuilder builder({30, 4410, 0, 1, 44100}, scale);
    std::vector<float> samples(44100, 0.0F);
    builder.push(samples.data(), samples.size());
    samples = sine(1000, 44100, 44100, 0.5);
    builder.push(samples.data(), samples.size());
    samples.assign(44100, 0.0F);
    builder.push(samples.data(), samples.size());
    const LevelGrid grid = builder.finish();
    const auto row = static_cast<std::size_t>(scale.positionOf(1000));
    EXPECT_EQ(grid.at(5, row), kSilenceDb);
    EXPECT_GT(grid.at(15, row), -12);
    EXPECT_EQ(grid.at(25, row), kSilenceDb);
}

TEST(SpectrogramBuilder, DoesNotDependOnHowTheRecordingIsCut) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, 80);
    const std::vector<float> samples = sine(777, 44100, 30000, 0.3, 2);
    SpectrogramBuilder whole({40, 30000.0 / 40, 0, 2, 44100}, scale);
    whole.push(samples.data(), 30000);
    SpectrogramBuilder pieces({40, 30000.0 / 40, 0, 2, 44100}, scale);
    for (std::size_t start = 0; start < 30000; start += 123) {
        pieces.push(samples.data() + start * 2, std::min<std::size_t>(123, 30000 - start));
    }
    const LevelGrid first = whole.finish();
    const LevelGrid second = pieces.finish();
    for (std::size_t column = 0; column < 40; ++column) {
        for (std::size_t row = 0; row < 80; ++row) {
            ASSERT_EQ(first.at(column, row), second.at(column, row)) << column << " " << row;
        }
    }
}

TEST(SpectrogramBuilder, ShowsWhatOnlyOneChannelPlays) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, 100);
    SpectrogramBuilder builder({10, 2205, 0, 2, 44100}, scale);
    std::vector<float> samples = sine(1000, 44100, 22050, 0.5, 2);
    for (std::size_t frame = 0; frame < 22050; ++frame) {
        samples[2 * frame + 1] = -samples[2 * frame];  // a sum of both would be silence
    }
    builder.push(samples.data(), 22050);
    const LevelGrid grid = builder.finish();
    EXPECT_GT(grid.at(5, brightestRow(grid, 5)), -8);
}

TEST(SpectrogramBuilder, HasNoDataOutsideTheRecordingAndAboveHalfItsRate) {
    const FrequencyScale scale(FrequencyAxis::kLinear, 24000, 240);
    SpectrogramBuilder builder({10, 800, 1600, 1, 8000}, scale);
    const std::vector<float> samples = sine(1000, 8000, 3200, 0.5);
    builder.push(samples.data(), samples.size());
    const LevelGrid grid = builder.finish();
    EXPECT_FALSE(hasData(grid, 1));
    EXPECT_TRUE(hasData(grid, 2));
    EXPECT_TRUE(hasData(grid, 5));
    EXPECT_FALSE(hasData(grid, 6));
    EXPECT_TRUE(std::isnan(grid.at(4, 100)));   // about 14 kHz
    EXPECT_FALSE(std::isnan(grid.at(4, 230)));  // about 1 kHz
}

TEST(SpectrogramBuilder, ShowsARecordingMuchShorterThanAColumn) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, 100);
    for (const double start : {0.0, 10.0, 700.0, 990.0}) {
        SpectrogramBuilder builder({4, 1000, start, 1, 44100}, scale);
        const std::vector<float> samples = sine(5000, 44100, 10, 0.5);
        builder.push(samples.data(), samples.size());
        const LevelGrid grid = builder.finish();
        EXPECT_TRUE(hasData(grid, 0)) << start;
        EXPECT_FALSE(hasData(grid, 1)) << start;
    }
}

TEST(SpectrogramBuilder, ShowsARecordingSpreadOverManyColumnsPerFrame) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, 100);
    SpectrogramBuilder builder({100, 0.05, 0, 1, 44100}, scale);
    const std::vector<float> samples{0.5F, -0.5F, 0.5F, -0.5F, 0.5F};
    builder.push(samples.data(), samples.size());
    const LevelGrid grid = builder.finish();
    for (std::size_t column = 0; column < 100; ++column) {
        EXPECT_TRUE(hasData(grid, column)) << column;
    }
}

TEST(SpectrogramBuilder, EmptyRecordingHasNoData) {
    const FrequencyScale scale(FrequencyAxis::kLinear, 22050, 50);
    SpectrogramBuilder builder({5, 100, 0, 2, 44100}, scale);
    const LevelGrid grid = builder.finish();
    for (std::size_t column = 0; column < 5; ++column) {
        EXPECT_FALSE(hasData(grid, column));
    }
}

TEST(SpectrogramBuilder, TakesAnySampleRate) {
    for (const double rate : {1.0, 100.0, 768000.0}) {
        const FrequencyScale scale(FrequencyAxis::kLogarithmic, rate / 2, 64);
        SpectrogramBuilder builder({8, 512, 0, 1, rate}, scale);
        const std::vector<float> samples = sine(rate / 4, rate, 4096, 0.5);
        builder.push(samples.data(), samples.size());
        const LevelGrid grid = builder.finish();
        EXPECT_NEAR(scale.hertzAt(static_cast<double>(brightestRow(grid, 4)) + 0.5) / rate, 0.25,
                    0.04)
            << rate;
    }
}

}  // namespace
}  // namespace tqpicture
