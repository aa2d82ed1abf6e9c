#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

#include "core/Records.h"

namespace tqrecorder {

/// Seconds of a hole that are taken for jitter: as many as `most` while the stamps of a stream jump
/// about, down to `least` once they come evenly.
struct Patience {
    double least;
    double most;
};

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
    /// was received.
    StreamClock(double sampleRate, std::uint64_t origin, const Patience& patience,
                Time began = std::chrono::steady_clock::now(), double slack = kSlack)
        : rate_(sampleRate),
          origin_(static_cast<double>(origin)),
          leastPatience_(patience.least * 1e6),
          mostPatience_(patience.most * 1e6),
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
        const double patience = std::clamp(2 * swing_, leastPatience_, mostPatience_);
        swing_ *= std::exp2(-static_cast<double>(frames) / rate_ / kSwingSeconds);
        if (std::abs(late) > kBrokenClock ||
            (late > patience &&
             late + static_cast<double>(silence) / rate_ * 1e6 > mostSilence())) {
            // A jump that large is no hole: the host's clock was reset.
            origin_ += late;
            hasJumped_ = true;
        } else if (late > (isFirst || idleFrames_ > 0 ? 0 : patience)) {
            // Behind a hole that was filled so far, the rest is no jitter.
            silence += static_cast<std::uint64_t>(std::llround(late / 1e6 * rate_));
        } else {
            swing_ = std::max(swing_, std::min(std::abs(late), mostPatience_));
            // Follows the drift between the device's clock and the host's.
            origin_ += std::abs(late) < patience ? late * kFollow : 0;
        }
        gaps_ += isFirst || silence == 0 || idleFrames_ > 0 ? 0 : 1;
        gapFrames_ += isFirst ? 0 : silence;
        idleFrames_ = 0;
        frames_ += silence + frames;
        silence_ += silence;
        return silence;
    }

    /// The same of a block. Holes that were filled before it came count as well.
    [[nodiscard]] std::uint64_t before(const Block& block) {
        gaps_ += block.filledFrames > 0 ? 1 : 0;
        gapFrames_ += block.filledFrames;
        silence_ += block.filledFrames;
        return before(block.microseconds, block.frames.size() / block.format.frameBytes(),
                      block.lostFrames);
    }

    /// Microseconds of silence that before() would put in front of a block stamped
    /// `microseconds`, but for jitter and losses.
    [[nodiscard]] double missingBefore(std::uint64_t microseconds) const {
        const double late = static_cast<double>(microseconds) - end();
        return late > kBrokenClock || late > mostSilence() ? 0 : std::max(late, 0.0);
    }

    /// How many frames of silence bring a stream up to that time, in microseconds, where its next
    /// block is known to be later. They are counted as written.
    [[nodiscard]] std::uint64_t idleUntil(double microseconds) {
        const double late = microseconds - end();
        if (late <= 0 || late > mostSilence()) {
            return 0;
        }
        const auto silence = static_cast<std::uint64_t>(late / 1e6 * rate_);
        const bool isFirst = blocks_ == 0;
        gaps_ += isFirst || idleFrames_ > 0 || silence == 0 ? 0 : 1;
        idleFrames_ += silence;
        gapFrames_ += isFirst ? 0 : silence;
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
    /// What stamps jump about is half forgotten in it.
    static constexpr double kSwingSeconds = 1;

    double rate_;
    double origin_;
    double leastPatience_;              // microseconds
    double mostPatience_;               // the same
    double swing_ = mostPatience_ / 2;  // how far stamps were from where they should be lately
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

/// A mix block is late by little at most. A unit's blocks may come in bursts; where they do not, a
/// stall of its device is filled as in the mix, which it would be shifted against.
inline constexpr Patience kMixPatience{0.05, 0.05};
inline constexpr Patience kTrackPatience{0.05, 0.25};

}  // namespace tqrecorder
