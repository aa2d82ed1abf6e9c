#pragma once

#include <cstdint>

namespace tqplatform {

/// Input frames per output frame as a reduced fraction of whole numbers.
struct RateRatio {
    std::int64_t input;
    std::int64_t output;

    /// The ratio of two finite rates above 0: exact for whole rates up to kMaximumTerm and for
    /// simple fractions such as 44100.5; for all others the nearest simple one, off by less than
    /// one part in kMaximumTerm, which is less than the clocks of two devices differ.
    [[nodiscard]] static RateRatio of(double inputRate, double outputRate) noexcept;

    [[nodiscard]] bool equal() const noexcept { return input == output; }
    /// Input frames to ask for so that `frames` more output frames are covered. `credit`: what
    /// was asked for before beyond the output, in input frames times `output`.
    [[nodiscard]] std::int64_t inputFor(std::int64_t frames, std::int64_t credit) const noexcept {
        const std::int64_t owed = frames * input - credit;
        return owed <= 0 ? 0 : (owed + output - 1) / output;
    }

    /// The resampler multiplies a rate by its 1024 phases in 30 bits.
    static constexpr std::int64_t kMaximumTerm = (std::int64_t{1} << 20) - 1;
};

}  // namespace tqplatform
