#include "picture/Axis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace tqpicture {
namespace {

using testing::ElementsAre;

std::vector<std::string> labels(const std::vector<Tick>& ticks) {
    std::vector<std::string> result;
    for (const Tick& tick : ticks) {
        result.push_back(tick.label);
    }
    return result;
}

TEST(LinearTicks, AreRoundAndReachTheEnd) {
    EXPECT_THAT(labels(linearTicks(10, 5)), ElementsAre("0", "2", "4", "6", "8", "10"));
}

TEST(LinearTicks, CarryTheDecimalsOfTheirStep) {
    EXPECT_THAT(labels(linearTicks(0.1, 5)),
                ElementsAre("0.00", "0.02", "0.04", "0.06", "0.08", "0.10"));
}

TEST(LinearTicks, NeverTakeMoreStepsThanAllowed) {
    for (const double end : {0.00023, 0.7, 1.0, 3.3, 59.9, 3601.0, 86400.0}) {
        EXPECT_LE(linearTicks(end, 12).size(), 13U) << end;
        EXPECT_GE(linearTicks(end, 12).size(), 4U) << end;
    }
}

TEST(LinearTicks, AreNoneForAnAxisWithoutLength) {
    EXPECT_TRUE(linearTicks(0, 10).empty());
    EXPECT_TRUE(linearTicks(-1, 10).empty());
    EXPECT_TRUE(linearTicks(std::numeric_limits<double>::quiet_NaN(), 10).empty());
    EXPECT_TRUE(linearTicks(std::numeric_limits<double>::infinity(), 10).empty());
    EXPECT_TRUE(linearTicks(10, 0).empty());
}

TEST(RoundUp, GivesTheNextRoundValue) {
    EXPECT_DOUBLE_EQ(roundUp(0.3), 0.5);
    EXPECT_DOUBLE_EQ(roundUp(1), 1);
    EXPECT_DOUBLE_EQ(roundUp(6), 10);
    EXPECT_DOUBLE_EQ(roundUp(0.2), 0.2);
    EXPECT_DOUBLE_EQ(roundUp(0), 1);
}

TEST(FrequencyLabel, ShortensThousands) {
    EXPECT_EQ(frequencyLabel(50), "50");
    EXPECT_EQ(frequencyLabel(1000), "1k");
    EXPECT_EQ(frequencyLabel(2500), "2.5k");
    EXPECT_EQ(frequencyLabel(20000), "20k");
    EXPECT_EQ(frequencyLabel(0.5), "0.50");
}

TEST(FrequencyScale, HasTheTopFrequencyAtTheTop) {
    for (const FrequencyAxis axis : {FrequencyAxis::kLinear, FrequencyAxis::kLogarithmic}) {
        const FrequencyScale scale(axis, 24000, 200);
        EXPECT_NEAR(scale.hertzAt(0), 24000, 1e-6);
        EXPECT_LT(scale.hertzAt(200), 31);
    }
}

TEST(FrequencyScale, PositionAndFrequencyAreInverse) {
    for (const FrequencyAxis axis : {FrequencyAxis::kLinear, FrequencyAxis::kLogarithmic}) {
        const FrequencyScale scale(axis, 22050, 260);
        for (const double hertz : {40.0, 440.0, 1000.0, 15000.0}) {
            EXPECT_NEAR(scale.hertzAt(scale.positionOf(hertz)), hertz, hertz * 1e-9);
        }
    }
}

TEST(FrequencyScale, LogarithmicAxisGivesEachOctaveTheSameRoom) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, 260);
    const double low = scale.positionOf(100) - scale.positionOf(200);
    const double high = scale.positionOf(5000) - scale.positionOf(10000);
    EXPECT_NEAR(low, high, 1e-9);
    EXPECT_GT(low, 0);
}

TEST(FrequencyScale, AxisTooLowForDecadesIsLinear) {
    const FrequencyScale scale(FrequencyAxis::kLogarithmic, 50, 100);
    EXPECT_NEAR(scale.hertzAt(50), 25, 1e-9);
    EXPECT_NEAR(scale.hertzAt(100), 0, 1e-9);
}

TEST(FrequencyScale, TicksKeepRoomForTheirLabels) {
    for (const int rows : {60, 150, 260, 1000}) {
        const FrequencyScale scale(FrequencyAxis::kLogarithmic, 22050, rows);
        const std::vector<Tick> ticks = scale.ticks();
        ASSERT_GE(ticks.size(), 2U) << rows;
        for (std::size_t index = 1; index < ticks.size(); ++index) {
            EXPECT_GE(
                scale.positionOf(ticks[index - 1].value) - scale.positionOf(ticks[index].value), 12)
                << rows;
        }
    }
}

}  // namespace
}  // namespace tqpicture
