#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tqrecorder {

/// Says where silence belongs so that a file's frames keep to the host's time: after blocks that
/// were lost, where time stamps jump, where a unit did not play.
class StreamClock {
  public:
    /// `origin` is the host time of the file's first frame, in microseconds. Holes shorter than
    /// `patience` seconds are taken for jitter.
    StreamClock(double sampleRate, std::uint64_t origin, double patience)
        : rate_(sampleRate), origin_(static_cast<double>(origin)), patience_(patience * 1e6) {}

    /// How many frames of silence go before a block of `frames` stamped `microseconds`. They and
    /// the block are counted as written. `certain` says that blocks are known to be missing.
    [[nodiscard]] std::uint64_t before(std::uint64_t microseconds, std::uint64_t frames,
                                       bool certain) {
        const double expected = origin_ + static_cast<double>(frames_) / rate_ * 1e6;
        const double late = static_cast<double>(microseconds) - expected;
        const double half = static_cast<double>(frames) / rate_ * 0.5e6;
        const bool isFirst = blocks_++ == 0;
        std::uint64_t silence = 0;
        if (std::abs(late) > kBrokenClock) {
            // A jump that large is no hole: the host's clock was reset.
            origin_ += late;
        } else if (late > (isFirst ? 0 : certain ? std::min(half, patience_) : patience_)) {
            silence = static_cast<std::uint64_t>(std::llround(late / 1e6 * rate_));
            gaps_ += isFirst || silence == 0 ? 0 : 1;
            gapFrames_ += isFirst ? 0 : silence;
        } else if (std::abs(late) < patience_) {
            // Follows the drift between the device's clock and the host's.
            origin_ += late * kFollow;
        }
        frames_ += silence + frames;
        return silence;
    }

    [[nodiscard]] std::uint64_t frames() const { return frames_; }
    /// Holes that were filled, the one before the first block left out.
    [[nodiscard]] std::uint64_t gaps() const { return gaps_; }
    [[nodiscard]] double gapSeconds() const { return static_cast<double>(gapFrames_) / rate_; }

  private:
    static constexpr double kBrokenClock = 24 * 3600e6;
    static constexpr double kFollow = 0.001;

    double rate_;
    double origin_;
    double patience_;
    std::uint64_t frames_ = 0;
    std::uint64_t blocks_ = 0;
    std::uint64_t gaps_ = 0;
    std::uint64_t gapFrames_ = 0;
};

/// Seconds. A mix block is late by little at most; a unit's blocks come in bursts.
inline constexpr double kMixPatience = 0.05;
inline constexpr double kTrackPatience = 0.25;

}  // namespace tqrecorder
