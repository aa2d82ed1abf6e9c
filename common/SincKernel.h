#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <vector>

namespace tqcommon {

/// Reads sound between two of its samples, for clocks that drift: a windowed sinc of 32 taps, flat
/// up to 0.96 of half the rate. Made once; reading allocates nothing. [any thread]
class SincKernel {
  public:
    static constexpr std::uint32_t kTaps = 32;
    /// The tap that is read alone where nothing lies between.
    static constexpr std::uint32_t kCentre = kTaps / 2 - 1;

    /// Throws std::bad_alloc.
    SincKernel() : rows_(std::size_t{kPhases + 1} * kTaps) {
        for (std::uint32_t phase = 0; phase <= kPhases; ++phase) {
            float* const row = rows_.data() + std::size_t{phase} * kTaps;
            double sum = 0;
            for (std::uint32_t tap = 0; tap < kTaps; ++tap) {
                const double away = tap - double{kCentre} - double(phase) / kPhases;
                const double place = 2 * away / kTaps;
                const double window =
                    bessel(kKaiser * std::sqrt(std::max(0.0, 1 - place * place))) / bessel(kKaiser);
                const double value = sinc(kCutoff * away) * window;
                row[tap] = static_cast<float>(value);
                sum += value;
            }
            for (std::uint32_t tap = 0; tap < kTaps; ++tap) {
                row[tap] = static_cast<float>(row[tap] / sum);
            }
        }
    }

    /// [real-time safe] Writes `channels` samples that lie `between` (0 to 1) behind the centre of
    /// the kTaps frames that `at(tap)` points to.
    template <class At>
    void read(double between, std::uint32_t channels, const At& at, float* frame) const noexcept {
        const double place = between * kPhases;
        const auto below = static_cast<std::uint32_t>(place);
        const auto rest = static_cast<float>(place - below);
        const float* const low = rows_.data() + std::size_t{below} * kTaps;
        const float* const high = low + kTaps;
        std::fill_n(frame, channels, 0.0F);
        for (std::uint32_t tap = 0; tap < kTaps; ++tap) {
            const float weight = low[tap] + rest * (high[tap] - low[tap]);
            const float* const from = at(tap);
            for (std::uint32_t channel = 0; channel < channels; ++channel) {
                frame[channel] += weight * from[channel];
            }
        }
    }

  private:
    static constexpr std::uint32_t kPhases = 256;
    static constexpr double kCutoff = 0.96;
    static constexpr double kKaiser = 8;

    /// Of order 0, as far as a float can tell.
    static double bessel(double x) {
        double term = 1;
        double sum = 1;
        for (int step = 1; step < 40; ++step) {
            term *= (x / (2 * step)) * (x / (2 * step));
            sum += term;
        }
        return sum;
    }
    static double sinc(double x) {
        return x == 0 ? 1 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
    }

    std::vector<float> rows_;  ///< kPhases + 1 of kTaps
};

}  // namespace tqcommon
