#pragma once

#include <gtest/gtest.h>

#include <string>

#include "bridges/core/NativeFormat.h"
#include "bridges/core/SampleConversion.h"
#include "support/sound/Sound.h"

// Noise in any layout of samples, and what a listener has of it.

namespace bridgetests {

/// Stereo at 48 kHz.
class NoiseIn {
  public:
    explicit NoiseIn(tq::bridges::NativeSample sample) {
        using tqtest::Encoding;
        const auto unit = tq::bridges::unitSampleOf(sample);
        const bool isWide = unit == tq::bridges::UnitSample::kS32;
        isFloat_ = unit == tq::bridges::UnitSample::kF32;
        const auto encoding = isFloat_ ? Encoding::F32 : isWide ? Encoding::S32 : Encoding::S16;
        unit_ = tqtest::markedNoise({48000, 2, encoding}, kFrames);
        written_.resize(2 * kFrames * bytesPerSample(sample));
        tq::bridges::fromUnit(sample)(unit_.bytes.data(), written_.data(), 2 * kFrames);
        // What the layout has no bits for is not there.
        tq::bridges::toUnit(sample)(written_.data(), unit_.bytes.data(), 2 * kFrames);
    }

    static constexpr std::size_t kFrames = 9600;

    /// As the program writes it.
    [[nodiscard]] const std::string& written() const { return written_; }
    /// As listeners have it: floats come with 16 bits.
    [[nodiscard]] tqtest::SoundFormat heardAs() const {
        return isFloat_ ? tqtest::SoundFormat{} : unit_.format;
    }
    void expectIs(const tqtest::Sound& heard) const {
        ASSERT_EQ(heard.frames(), kFrames);
        if (!isFloat_) {
            EXPECT_EQ(heard.bytes, unit_.bytes);
            return;
        }
        for (std::size_t frame = 0; frame < kFrames; ++frame) {
            ASSERT_NEAR(heard.value(frame, 1), unit_.value(frame, 1), 1.6 / 32768) << frame;
        }
    }

  private:
    bool isFloat_ = false;
    tqtest::Sound unit_;
    std::string written_;
};

}  // namespace bridgetests
