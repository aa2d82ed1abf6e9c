#include "PlayClock.h"

#include <algorithm>

namespace tqcubeb {

namespace {

constexpr double kNsPerSecond = 1e9;
/// Beyond it the device has stood still: time is taken anew.
constexpr double kMostDriftNs = 100e6;
/// Of what a block is late: as much as clocks that differ need.
constexpr double kDraw = 0.003;

}  // namespace

std::uint64_t PlayClock::next(std::uint64_t saidNs, std::uint32_t frames) noexcept {
    const auto said = static_cast<double>(saidNs);
    const double late = said - expectedNs_;
    double now = said;
    if (expectedNs_ > 0 && late > 0 && late < kMostDriftNs) {
        now = expectedNs_ + kDraw * late;
    }
    lastNs_ = std::max(now, lastNs_);
    expectedNs_ = now + frames * kNsPerSecond / framesPerSecond_;
    return static_cast<std::uint64_t>(lastNs_);
}

}  // namespace tqcubeb
