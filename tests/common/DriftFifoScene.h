#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <vector>

#include "common/DriftFifo.h"

// What tests of DriftFifo share.

namespace tqtest::drift {

constexpr double kRate = 48000;
constexpr double kHertz = 1000;
constexpr std::uint32_t kHeard = 480;   ///< frames that the microphone brings at a time
constexpr std::uint32_t kPlayed = 300;  ///< frames that are asked for at a time
constexpr auto kForAWhile = tqcommon::DriftFifo::Patience::kForAWhile;

inline float toneAt(double frame) {
    return static_cast<float>(std::sin(2 * std::numbers::pi * kHertz * frame / kRate));
}

/// The largest step from what the two samples before let expect of a sine: a gap is seen at once.
inline double roughness(const std::vector<float>& samples) {
    const double turn = 2 * std::cos(2 * std::numbers::pi * kHertz / kRate);
    double most = 0;
    for (std::size_t i = 2; i < samples.size(); ++i) {
        most = std::max(most, std::abs(samples[i] - turn * samples[i - 1] + samples[i - 2]));
    }
    return most;
}

}  // namespace tqtest::drift
