#include "sample_conversion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace korva_audio_utils {
namespace {

using testing::ElementsAre;

using Convert = void (*)(const float*, std::int16_t*, std::size_t) noexcept;

/// The rule in words: one product in single precision, truncated, limited; NaN is silence.
std::int16_t Expected(float sample) {
    const volatile float scaled = sample * 32767.0F;
    if (std::isnan(scaled)) {
        return 0;
    }
    return static_cast<std::int16_t>(
        std::clamp(std::trunc(static_cast<double>(scaled)), -32767.0, 32767.0));
}

class SampleConversion : public testing::TestWithParam<Convert> {
  protected:
    static std::vector<std::int16_t> Run(const std::vector<float>& samples) {
        std::vector<std::int16_t> converted(samples.size(), 21845);
        GetParam()(samples.data(), converted.data(), samples.size());
        return converted;
    }
    static void ExpectRule(const std::vector<float>& samples) {
        const std::vector<std::int16_t> converted = Run(samples);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            ASSERT_EQ(converted[i], Expected(samples[i])) << samples[i];
        }
    }
};

std::string KindName(const testing::TestParamInfo<Convert>& kind) {
    constexpr std::array kNames{"Vectors", "Baseline", "Portable"};
    return kNames.at(kind.index);
}

INSTANTIATE_TEST_SUITE_P(All, SampleConversion,
                         testing::Values(&ConvertFloatToInt16, &ConvertFloatToInt16Baseline,
                                         &ConvertFloatToInt16Portable),
                         KindName);

TEST_P(SampleConversion, KnownSamples) {
    EXPECT_THAT(Run({0.0F, -0.0F, 1.0F, -1.0F, 2.0F, -2.0F, 0.99999F, 0.5F, -0.5F}),
                ElementsAre(0, 0, 32767, -32767, 32767, -32767, 32766, 16383, -16383));
}

TEST_P(SampleConversion, WhatIsNoNumberIsSilenceAndWhatIsTooLargeIsLimited) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kHuge = std::numeric_limits<float>::max();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> samples{nan,   -nan,   kInfinity, -kInfinity,
                               kHuge, -kHuge, 65538.5F,  -65538.5F};
    samples.resize(32, 0.25F);
    const auto converted = Run(samples);
    EXPECT_THAT(std::vector<std::int16_t>(converted.begin(), converted.begin() + 8),
                ElementsAre(0, 0, 32767, -32767, 32767, -32767, 32767, -32767));
    EXPECT_EQ(converted.back(), 8191);
}

TEST_P(SampleConversion, EveryStepAndItsNeighbours) {
    std::vector<float> samples;
    for (int step = -32770; step <= 32770; ++step) {
        const float at = static_cast<float>(step) / 32767.0F;
        samples.insert(samples.end(), {at, std::nextafter(at, -2.0F), std::nextafter(at, 2.0F)});
    }
    ExpectRule(samples);
}

TEST_P(SampleConversion, FloatsOfAllSizesDenormalsToo) {
    std::vector<float> samples;
    constexpr std::uint64_t kStride = 4099;  // a prime: all exponents, ever other fractions
    for (std::uint64_t bits = 0; bits < 1ULL << 32U; bits += kStride) {
        samples.push_back(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
    }
    ExpectRule(samples);
}

TEST_P(SampleConversion, AnyLengthAtAnyPlaceAndNotASampleMore) {
    std::vector<float> samples(80);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<float>(i) / 80.0F - 0.5F;
    }
    for (std::size_t place = 0; place < 8; ++place) {
        for (std::size_t length = 0; length <= 64; ++length) {
            std::vector<std::int16_t> converted(80, 21845);
            GetParam()(samples.data() + place, converted.data() + 8 - place, length);
            for (std::size_t i = 0; i < converted.size(); ++i) {
                const bool isInside = i >= 8 - place && i < 8 - place + length;
                ASSERT_EQ(converted[i],
                          isInside ? Expected(samples[i - (8 - place) + place]) : 21845);
            }
        }
    }
}

}  // namespace
}  // namespace korva_audio_utils
