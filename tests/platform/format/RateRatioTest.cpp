#include "format/RateRatio.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using tqplatform::RateRatio;

void expectRatio(double input, double output, std::int64_t above, std::int64_t below) {
    const RateRatio ratio = RateRatio::of(input, output);
    EXPECT_EQ(ratio.input, above) << input << " to " << output;
    EXPECT_EQ(ratio.output, below) << input << " to " << output;
}

TEST(RateRatio, ReducesWholeRates) {
    expectRatio(48000, 44100, 160, 147);
    expectRatio(44100, 48000, 147, 160);
    expectRatio(11025, 48000, 147, 640);
    expectRatio(22050, 44100, 1, 2);
    expectRatio(192000, 8000, 24, 1);
    expectRatio(44101, 96000, 44101, 96000);
    expectRatio(999983, 1000000, 999983, 1000000);
}

TEST(RateRatio, IsExactForSimpleFractions) {
    expectRatio(44100.5, 48000, 88201, 96000);
    expectRatio(48000, 44100.5, 96000, 88201);
    expectRatio(29.97 * 1600, 48000, 999, 1000);
}

TEST(RateRatio, ComesAsNearAsItsTermsAllow) {
    for (const double rate : {44100.1234567, 47999.9999, 31999.37, 8000.001}) {
        const RateRatio ratio = RateRatio::of(rate, 48000);
        const double reached = static_cast<double>(ratio.input) / static_cast<double>(ratio.output);
        EXPECT_LE(std::fabs(reached / (rate / 48000) - 1), 1e-6) << rate;
        EXPECT_LE(ratio.input, RateRatio::kMaximumTerm);
        EXPECT_LE(ratio.output, RateRatio::kMaximumTerm);
    }
}

TEST(RateRatio, EqualRatesAreEqual) {
    EXPECT_TRUE(RateRatio::of(44100, 44100).equal());
    EXPECT_TRUE(RateRatio::of(44100.7, 44100.7).equal());
    EXPECT_FALSE(RateRatio::of(44100, 44101).equal());
}

TEST(RateRatio, StaysWithinItsTermsWhenRatesAreFarApart) {
    for (const double rate : {1e-300, 1e-3, 1e9, 1e300}) {
        const RateRatio ratio = RateRatio::of(rate, 48000);
        EXPECT_GE(ratio.input, 1);
        EXPECT_GE(ratio.output, 1);
        EXPECT_LE(ratio.input, RateRatio::kMaximumTerm);
        EXPECT_LE(ratio.output, RateRatio::kMaximumTerm);
    }
}

TEST(RateRatio, AsksForInputThatNeverFallsBehind) {
    const RateRatio ratio{160, 147};
    std::int64_t asked = 0;
    for (std::int64_t given = 1; given <= 1000; ++given) {
        asked += ratio.inputFor(1, asked * 147 - (given - 1) * 160);
        EXPECT_EQ(asked, (given * 160 + 146) / 147);
    }
}

}  // namespace
