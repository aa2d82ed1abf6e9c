#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace tqrecorder {

/// Says when silence is due in a source that others read as it comes, so that it never stands
/// still: where no sound has come for longer than its blocks are late now and then.
class SilencePace {
  public:
    using Time = std::chrono::steady_clock::time_point;

    SilencePace(double sampleRate, Time now) : rate_(sampleRate), covered_(now) {}

    void sound(std::uint32_t frames, Time now) {
        lastBlock_ = duration(frames);
        covered_ = std::max(covered_ + lastBlock_, now);
    }
    /// Frames of silence to be given now; they count as given.
    [[nodiscard]] std::uint32_t due(Time now) {
        if (now - covered_ < kPatience + 2 * lastBlock_) {
            return 0;
        }
        // What is due at first comes in pieces as well: a pipe holds no long one.
        covered_ = std::max(covered_, now - kLongest);
        const Duration piece = std::min(now - covered_, kPiece);
        covered_ += piece;
        lastBlock_ = -kPatience / 2;  // until there is sound again
        return static_cast<std::uint32_t>(std::chrono::duration<double>(piece).count() * rate_);
    }

  private:
    using Duration = std::chrono::steady_clock::duration;
    [[nodiscard]] Duration duration(std::uint32_t frames) const {
        return std::chrono::duration_cast<Duration>(
            std::chrono::duration<double>(static_cast<double>(frames) / rate_));
    }

    /// Of the recorder and its program, on a machine that is not idle.
    static constexpr Duration kPatience = std::chrono::milliseconds{50};
    static constexpr Duration kPiece = std::chrono::milliseconds{20};
    static constexpr Duration kLongest = std::chrono::milliseconds{200};

    double rate_;
    Time covered_;  ///< until when there was sound or silence
    Duration lastBlock_{0};
};

}  // namespace tqrecorder
