#include "PlayClock.h"

#include <algorithm>
#include <cmath>

namespace tqcubeb {

namespace {

constexpr double kNsPerSecond = 1e9;
/// Beyond it the device has stood still: time is taken anew.
constexpr double kMostDriftNs = 100e6;
constexpr double kDraw = 0.02;

}  // namespace

std::uint64_t PlayClock::next(std::uint64_t saidNs, std::uint32_t frames) noexcept {
    const auto said = static_cast<double>(saidNs);
    double now = said;
    if (expectedNs_ > 0 && std::abs(said - expectedNs_) < kMostDriftNs) {
        now = expectedNs_ + kDraw * (said - expectedNs_);
    } else {
        now = std::max(said, expectedNs_);
    }
    expectedNs_ = now + frames * kNsPerSecond / framesPerSecond_;
    return static_cast<std::uint64_t>(now);
}

}  // namespace tqcubeb
