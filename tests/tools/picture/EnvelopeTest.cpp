#include "picture/Envelope.h"

#include <gtest/gtest.h>

#include <cmath>

namespace tqpicture {
namespace {

TEST(EnvelopeBuilder, KeepsExtremesAndRmsOfEachColumn) {
    EnvelopeBuilder builder(2, 4, 0, 1);
    const std::vector<float> samples{0.5F, -0.5F, 0.5F, -0.5F, 0.1F, 0.2F, 0.3F, -0.4F};
    builder.push(samples.data(), samples.size());
    const std::vector<EnvelopeColumn> columns = builder.columns();
    EXPECT_FLOAT_EQ(columns[0].lowest, -0.5F);
    EXPECT_FLOAT_EQ(columns[0].highest, 0.5F);
    EXPECT_FLOAT_EQ(columns[0].rms, 0.5F);
    EXPECT_FLOAT_EQ(columns[1].lowest, -0.4F);
    EXPECT_FLOAT_EQ(columns[1].highest, 0.3F);
    EXPECT_NEAR(columns[1].rms, std::sqrt((0.01 + 0.04 + 0.09 + 0.16) / 4), 1e-6);
}

TEST(EnvelopeBuilder, DoesNotDependOnHowTheRecordingIsCut) {
    std::vector<float> samples;
    for (int index = 0; index < 1000; ++index) {
        samples.push_back(static_cast<float>(std::sin(index * 0.37)));
    }
    EnvelopeBuilder whole(37, 1000.0 / 37, 0, 1);
    whole.push(samples.data(), samples.size());
    EnvelopeBuilder pieces(37, 1000.0 / 37, 0, 1);
    for (std::size_t start = 0; start < samples.size(); start += 7) {
        pieces.push(samples.data() + start, std::min<std::size_t>(7, samples.size() - start));
    }
    for (std::size_t column = 0; column < 37; ++column) {
        EXPECT_EQ(whole.columns()[column].highest, pieces.columns()[column].highest);
        EXPECT_EQ(whole.columns()[column].lowest, pieces.columns()[column].lowest);
        EXPECT_EQ(whole.columns()[column].rms, pieces.columns()[column].rms);
        EXPECT_TRUE(pieces.columns()[column].hasData);
    }
}

TEST(EnvelopeBuilder, LooksAtEveryChannel) {
    EnvelopeBuilder builder(1, 2, 0, 2);
    const std::vector<float> samples{0.0F, -0.75F, 0.25F, 0.0F};
    builder.push(samples.data(), 2);
    EXPECT_FLOAT_EQ(builder.columns()[0].lowest, -0.75F);
    EXPECT_FLOAT_EQ(builder.columns()[0].highest, 0.25F);
    EXPECT_DOUBLE_EQ(builder.peak(), 0.75);
    EXPECT_NEAR(builder.rms(), std::sqrt((0.75 * 0.75 + 0.25 * 0.25) / 4), 1e-9);
}

TEST(EnvelopeBuilder, RepeatsAFrameOverColumnsNarrowerThanIt) {
    EnvelopeBuilder builder(8, 0.25, 0, 1);
    const std::vector<float> samples{0.5F, -0.25F};
    builder.push(samples.data(), 2);
    const std::vector<EnvelopeColumn> columns = builder.columns();
    for (std::size_t column = 0; column < 8; ++column) {
        EXPECT_TRUE(columns[column].hasData) << column;
        EXPECT_FLOAT_EQ(columns[column].highest, column < 4 ? 0.5F : -0.25F) << column;
    }
}

TEST(EnvelopeBuilder, LeavesColumnsBeforeTheStartAndAfterTheEndEmpty) {
    EnvelopeBuilder builder(4, 2, 2, 1);
    const std::vector<float> samples{0.5F, 0.5F};
    builder.push(samples.data(), 2);
    const std::vector<EnvelopeColumn> columns = builder.columns();
    EXPECT_FALSE(columns[0].hasData);
    EXPECT_TRUE(columns[1].hasData);
    EXPECT_FALSE(columns[2].hasData);
    EXPECT_FALSE(columns[3].hasData);
}

TEST(EnvelopeBuilder, DropsFramesBeyondTheLastColumnFromThePictureOnly) {
    EnvelopeBuilder builder(1, 2, 0, 1);
    const std::vector<float> samples{0.1F, 0.1F, 0.9F};
    builder.push(samples.data(), 3);
    EXPECT_FLOAT_EQ(builder.columns()[0].highest, 0.1F);
    EXPECT_NEAR(builder.peak(), 0.9, 1e-6);
}

TEST(EnvelopeBuilder, NothingPushedIsSilence) {
    const EnvelopeBuilder builder(3, 10, 0, 2);
    EXPECT_EQ(builder.peak(), 0);
    EXPECT_EQ(builder.rms(), 0);
    EXPECT_FALSE(builder.columns()[0].hasData);
}

}  // namespace
}  // namespace tqpicture
