#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <tuple>
#include <vector>

#include "format/RateConverter.h"

namespace {

using tqplatform::RateConverter;

constexpr double kAmplitude = 0.5;
constexpr UInt32 kMaximumFrames = 1024;

struct Tone {
    double frequency;  ///< over the input rate
    std::uint64_t frame = 0;

    static OSStatus pull(void* context, const tqcommon::AudioView& planes) {
        auto& self = *static_cast<Tone*>(context);
        for (UInt32 frame = 0; frame < planes.frames(); ++frame, ++self.frame) {
            // Whole turns are taken off first: the argument stays small and exact.
            const double turns = static_cast<double>(self.frame) * self.frequency;
            planes.at(0, frame) = static_cast<float>(
                kAmplitude * std::sin(2 * std::numbers::pi * (turns - std::floor(turns))));
        }
        return noErr;
    }
};

/// Two seconds of a tone through a converter, in blocks of random size.
std::vector<float> convert(double input, double output, double hertz) {
    RateConverter converter(input, output, 1, kMaximumFrames);
    Tone tone{hertz / input};
    std::vector<float> out(static_cast<std::size_t>(2 * output));
    std::mt19937 random(static_cast<unsigned>(hertz));
    for (std::size_t made = 0; made < out.size();) {
        const auto frames = static_cast<UInt32>(
            std::min<std::size_t>(1 + random() % kMaximumFrames, out.size() - made));
        const tqcommon::AudioView planes(out.data() + made, 1, frames, 0);
        EXPECT_EQ(converter.pull(planes, &Tone::pull, &tone), noErr);
        made += frames;
    }
    return out;
}

struct Reading {
    double levelDB;    ///< of the tone, against what went in
    double residueDB;  ///< of all else, against the tone
    double worstPeak;  ///< of all else, in any one frame
};

/// Takes the best fitting sine out and looks at what is left.
Reading measure(const std::vector<float>& signal, double rate, double hertz) {
    const std::size_t first = 1000;  // after the converter has filled
    double ss = 0, cc = 0, sc = 0, ys = 0, yc = 0;
    const auto angle = [&](std::size_t at) {
        const double turns = static_cast<double>(at) * hertz / rate;
        return 2 * std::numbers::pi * (turns - std::floor(turns));
    };
    for (std::size_t at = first; at < signal.size(); ++at) {
        const double s = std::sin(angle(at)), c = std::cos(angle(at)), y = signal[at];
        ss += s * s, cc += c * c, sc += s * c, ys += y * s, yc += y * c;
    }
    const double determinant = ss * cc - sc * sc;
    const double a = (ys * cc - yc * sc) / determinant;
    const double b = (yc * ss - ys * sc) / determinant;
    double residue = 0, worst = 0;
    for (std::size_t at = first; at < signal.size(); ++at) {
        const double rest = signal[at] - a * std::sin(angle(at)) - b * std::cos(angle(at));
        residue += rest * rest;
        worst = std::max(worst, std::fabs(rest));
    }
    const double power = (a * a + b * b) / 2;
    residue /= static_cast<double>(signal.size() - first);
    return {10 * std::log10((a * a + b * b) / (kAmplitude * kAmplitude)),
            10 * std::log10(residue / power), worst};
}

class RateConverterQuality
    : public testing::TestWithParam<std::tuple<std::pair<double, double>, double>> {};

TEST_P(RateConverterQuality, TonesKeepTheirLevelAndStayClean) {
    const auto [rates, hertz] = GetParam();
    const auto [input, output] = rates;
    const Reading reading = measure(convert(input, output, hertz), output, hertz);
    EXPECT_NEAR(reading.levelDB, 0, 0.01);
    EXPECT_LT(reading.residueDB, -90);
    // A click at the border of a block would hide in the mean of two seconds, but not here.
    EXPECT_LT(reading.worstPeak, kAmplitude * std::pow(10.0, -85.0 / 20));
    RecordProperty("residueDB", std::to_string(reading.residueDB));
}

INSTANTIATE_TEST_SUITE_P(
    Tones, RateConverterQuality,
    testing::Combine(testing::Values(std::pair{48000.0, 44100.0}, std::pair{44100.0, 48000.0},
                                     std::pair{22050.0, 44100.0}, std::pair{48000.0, 44100.5},
                                     std::pair{96000.0, 48000.0}, std::pair{192000.0, 44100.0}),
                     testing::Values(1000.0, 10000.0)));

TEST(RateConverterQuality, WhatTheOutputCannotHoldIsTakenOut) {
    const auto out = convert(96000, 44100, 30000);
    float worst = 0;
    for (std::size_t at = 1000; at < out.size(); ++at) {
        worst = std::max(worst, std::fabs(out[at]));
    }
    EXPECT_LT(worst, kAmplitude * std::pow(10.0, -100.0 / 20));
}

TEST(RateConverterQuality, TheUpperEndOfAnUpsampledToneHasNoMirrorImage) {
    const Reading reading = measure(convert(22050, 44100, 10300), 44100, 10300);
    EXPECT_LT(reading.residueDB, -90);
}

}  // namespace
