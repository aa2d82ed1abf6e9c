#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

#include "core/Records.h"

namespace tqrecorder {

/// Says where silence belongs so that a file's frames keep to the host's time: after blocks that
/// were lost, where time stamps jump, where a unit did not play.
///
/// A host may stamp what it likes. All silence of a stream together is never longer than the stream
/// has really been recorded, and kSlack beyond that for programs that render faster than they play.
/// A block whose hole would be longer follows without one, and the clock goes on from its stamp.
class StreamClock {
  public:
    using Time = std::chrono::steady_clock::time_point;
    /// Seconds.
    static constexpr double kSlack = 600;

    /// `origin` is the host time of the file's first frame, in microseconds, and `began` when it
    /// was received. Holes shorter than `patience` seconds are taken for jitter.
    StreamClock(double sampleRate, std::uint64_t origin, double patience,
                Time began = std::chrono::steady_clock::now(), double slack = kSlack)
        : rate_(sampleRate),
          origin_(static_cast<double>(origin)),
          patience_(patience * 1e6),
          began_(began),
          slack_(slack) {}

    /// How many frames of silence go before a block of `frames` stamped `microseconds`. They and
    /// the block are counted as written. `lostFrames` are known to be missing right before it:
    /// silence stands for each of them, whatever the stamp says. Those before the first block count
    /// for nothing, as a file begins with what has arrived.
    [[nodiscard]] std::uint64_t before(std::uint64_t microseconds, std::uint64_t frames,
                                       std::uint64_t lostFrames) {
        const bool isFirst = blocks_++ == 0;
        std::uint64_t silence = 0;
        lostFrames -= std::min(lostFrames, idleFrames_);
        if (!isFirst && static_cast<double>(lostFrames) / rate_ * 1e6 <= mostSilence()) {
            silence = lostFrames;
        }
        const double late =
            static_cast<double>(microseconds) - end() - static_cast<double>(silence) / rate_ * 1e6;
        if (std::abs(late) > kBrokenClock ||
            (late > patience_ &&
             late + static_cast<double>(silence) / rate_ * 1e6 > mostSilence())) {
            // A jump that large is no hole: the host's clock was reset.
            origin_ += late;
            hasJumped_ = true;
        } else if (late > (isFirst || idleFrames_ > 0 ? 0 : patience_)) {
            // Behind a hole that was filled so far, the rest is no jitter.
            silence += static_cast<std::uint64_t>(std::llround(late / 1e6 * rate_));
        } else if (std::abs(late) < patience_) {
            // Follows the drift between the device's clock and the host's.
            origin_ += late * kFollow;
        }
        gaps_ += isFirst || silence == 0 || idleFrames_ > 0 ? 0 : 1;
        gapFrames_ += isFirst ? 0 : silence;
        idleFrames_ = 0;
        frames_ += silence + frames;
        silence_ += silence;
        return silence;
    }

    /// How many frames of silence bring a stream that has begun up to that time, in microseconds,
    /// where its next block is known to be later. They are counted as written.
    [[nodiscard]] std::uint64_t idleUntil(double microseconds) {
        const double late = microseconds - end();
        if (late <= 0 || late > mostSilence()) {
            return 0;
        }
        const auto silence = static_cast<std::uint64_t>(late / 1e6 * rate_);
        gaps_ += idleFrames_ > 0 || silence == 0 ? 0 : 1;
        idleFrames_ += silence;
        gapFrames_ += silence;
        frames_ += silence;
        silence_ += silence;
        return silence;
    }

    [[nodiscard]] std::uint64_t frames() const { return frames_; }
    /// Host time behind the last frame, in microseconds.
    [[nodiscard]] double end() const {
        return origin_ + static_cast<double>(frames_) / rate_ * 1e6;
    }
    /// Holes that were filled, the one before the first block left out.
    [[nodiscard]] std::uint64_t gaps() const { return gaps_; }
    [[nodiscard]] double gapSeconds() const { return static_cast<double>(gapFrames_) / rate_; }
    /// True once, after the first stamp that could not be followed.
    [[nodiscard]] bool takeJump() { return hasJumped_ && !std::exchange(isJumpTaken_, true); }

  private:
    /// Microseconds that may still be filled.
    [[nodiscard]] double mostSilence() const {
        const std::chrono::duration<double> recorded = std::chrono::steady_clock::now() - began_;
        return (recorded.count() + slack_ - static_cast<double>(silence_) / rate_) * 1e6;
    }

    static constexpr double kBrokenClock = 24 * 3600e6;
    static constexpr double kFollow = 0.001;

    double rate_;
    double origin_;
    double patience_;
    Time began_;
    double slack_;
    std::uint64_t frames_ = 0;
    std::uint64_t silence_ = 0;  // frames
    bool hasJumped_ = false;
    bool isJumpTaken_ = false;
    std::uint64_t idleFrames_ = 0;  // by idleUntil(), of the hole that it has begun to fill
    std::uint64_t blocks_ = 0;
    std::uint64_t gaps_ = 0;
    std::uint64_t gapFrames_ = 0;
};

/// The slack of a stream in that format: of one that takes much room less time, so that no stamp is
/// worth more than a gigabyte.
inline double slackOf(const BlockFormat& format) {
    constexpr double kMostBytes = 1e9;
    const double bytesPerSecond = format.sampleRate * static_cast<double>(format.frameBytes());
    return std::min(StreamClock::kSlack, kMostBytes / bytesPerSecond);
}

/// What the user is told of a stream after takeJump().
inline std::string jumpText(const std::string& path) {
    return path + ": the program's time stamps jumped; what follows is not at its time";
}

/// Seconds. A mix block is late by little at most; a unit's blocks come in bursts.
inline constexpr double kMixPatience = 0.05;
inline constexpr double kTrackPatience = 0.25;

}  // namespace tqrecorder
