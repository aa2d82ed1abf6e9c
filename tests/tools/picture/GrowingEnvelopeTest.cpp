#include "picture/GrowingEnvelope.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace tqpicture {
namespace {

std::vector<float> swell(std::size_t frames) {
    std::vector<float> samples;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const double place = static_cast<double>(frame);
        samples.push_back(
            static_cast<float>(std::sin(place * 0.37) * place / static_cast<double>(frames)));
    }
    return samples;
}

/// Of a recording that begins 0.7 columns into the first.
void expectLikeTheBuilder(std::size_t frames, std::size_t columns, float slack) {
    const std::vector<float> samples = swell(frames);
    const double wide = static_cast<double>(frames) / (static_cast<double>(columns) - 2);
    EnvelopeBuilder builder(columns, wide, 0.7 * wide, 1);
    builder.push(samples.data(), frames);
    GrowingEnvelope growing(1);
    for (std::size_t frame = 0; frame < frames; frame += 470) {
        growing.push(samples.data() + frame, std::min<std::size_t>(470, frames - frame));
    }
    const std::vector<EnvelopeColumn> expected = builder.columns();
    const std::vector<EnvelopeColumn> got = growing.columns(columns, wide, 0.7 * wide);
    ASSERT_EQ(got.size(), columns);
    for (std::size_t column = 0; column < columns; ++column) {
        EXPECT_EQ(got[column].hasData, expected[column].hasData) << column;
        EXPECT_NEAR(got[column].highest, expected[column].highest, slack) << column;
        EXPECT_NEAR(got[column].lowest, expected[column].lowest, slack) << column;
        EXPECT_NEAR(got[column].rms, expected[column].rms, slack) << column;
    }
    EXPECT_EQ(growing.frames(), frames);
    EXPECT_DOUBLE_EQ(growing.peak(), builder.peak());
    EXPECT_NEAR(growing.rms(), builder.rms(), 1e-9);
}

TEST(GrowingEnvelope, OfAShortRecordingEveryFrameIsKept) {
    expectLikeTheBuilder(8000, 100, 0);
    expectLikeTheBuilder(50, 100, 0);
}

TEST(GrowingEnvelope, OfALongOneColumnsAreMerged) {
    expectLikeTheBuilder(2'000'000, 1232, 0.01F);
}

TEST(GrowingEnvelope, SilenceIsSilenceHoweverItCame) {
    GrowingEnvelope pushed(2);
    GrowingEnvelope told(2);
    const std::vector<float> sound(2000, 0.5F);
    const std::vector<float> silence(200'000, 0.0F);
    pushed.push(sound.data(), 1000);
    pushed.push(silence.data(), 100'000);
    pushed.push(sound.data(), 1000);
    told.push(sound.data(), 1000);
    told.pushSilence(100'000);
    told.push(sound.data(), 1000);
    const std::vector<EnvelopeColumn> a = pushed.columns(500, 204, 0);
    const std::vector<EnvelopeColumn> b = told.columns(500, 204, 0);
    for (std::size_t column = 0; column < 500; ++column) {
        EXPECT_EQ(a[column].highest, b[column].highest);
        EXPECT_EQ(a[column].lowest, b[column].lowest);
        EXPECT_EQ(a[column].rms, b[column].rms);
    }
    EXPECT_DOUBLE_EQ(pushed.rms(), told.rms());
}

TEST(GrowingEnvelope, NothingIsNoData) {
    const GrowingEnvelope growing(1);
    EXPECT_FALSE(growing.columns(1, 10, 0)[0].hasData);
    EXPECT_EQ(growing.rms(), 0);
}

}  // namespace
}  // namespace tqpicture
