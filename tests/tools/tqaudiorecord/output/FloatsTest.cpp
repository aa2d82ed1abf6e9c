#include "output/Floats.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>

namespace tqrecorder::test {
namespace {

template <typename Sample>
std::vector<float> floats(const BlockFormat& format, const std::vector<Sample>& samples) {
    Floats reader(format);
    EXPECT_TRUE(reader.isKnown());
    const std::span<const float> got = reader.of(std::as_bytes(std::span(samples)));
    return {got.begin(), got.end()};
}

TEST(Floats, OfEveryFormatHaveAFullScaleOf1) {
    using testing::ElementsAre;
    EXPECT_THAT(floats<std::int8_t>({48000, 1, 8, false}, {-128, 64}), ElementsAre(-1, 0.5));
    EXPECT_THAT(floats<std::int16_t>({48000, 1, 16, false}, {-32768, 16384}), ElementsAre(-1, 0.5));
    EXPECT_THAT(floats<std::uint8_t>({48000, 1, 24, false}, {0, 0, 0x80, 0, 0, 0x40}),
                ElementsAre(-1, 0.5));
    EXPECT_THAT(floats<std::int32_t>({48000, 1, 32, false}, {INT32_MIN, 1 << 30}),
                ElementsAre(-1, 0.5));
    EXPECT_THAT(floats<float>({48000, 1, 32, true}, {-1, 0.5}), ElementsAre(-1, 0.5));
    EXPECT_THAT(floats<double>({48000, 1, 64, true}, {-1, 0.5}), ElementsAre(-1, 0.5));
}

TEST(Floats, WhatIsNoNumberIsSilence) {
    constexpr double kHuge = 1e300;  // infinite as a float
    EXPECT_THAT(floats<double>({48000, 1, 64, true},
                               {std::numeric_limits<double>::quiet_NaN(), kHuge, 0.25}),
                testing::ElementsAre(0, 0, 0.25));
}

TEST(Floats, OfUnknownFormatsThereAreNone) {
    Floats reader({48000, 1, 20, false});
    EXPECT_FALSE(reader.isKnown());
    const std::array<std::byte, 8> bytes{};
    EXPECT_TRUE(reader.of(bytes).empty());
}

}  // namespace
}  // namespace tqrecorder::test
