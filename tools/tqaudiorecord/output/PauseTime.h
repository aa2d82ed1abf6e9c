#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tqrecorder {

/// Takes pauses out of a recording's time. Times are the hosts', microseconds. Blocks are read
/// later than they were rendered: what counts is when that was.
class PauseTime {
  public:
    [[nodiscard]] bool isPaused() const {
        return !pauses_.empty() && pauses_.back().end == UINT64_MAX;
    }
    void pause(std::uint64_t now) {
        if (!isPaused()) {
            pauses_.push_back({now, UINT64_MAX});
        }
    }
    void resume(std::uint64_t now) {
        if (isPaused()) {
            pauses_.back().end = std::max(now, pauses_.back().begin);
        }
    }
    [[nodiscard]] bool isWithin(std::uint64_t time) const {
        return std::any_of(pauses_.begin(), pauses_.end(), [time](const Pause& pause) {
            return time >= pause.begin && time < pause.end;
        });
    }
    [[nodiscard]] bool isAny() const { return !pauses_.empty(); }
    /// How much of the time before was paused.
    [[nodiscard]] std::uint64_t before(std::uint64_t time) const {
        std::uint64_t all = 0;
        for (const Pause& pause : pauses_) {
            all += time > pause.begin ? std::min(time, pause.end) - pause.begin : 0;
        }
        return all;
    }
    /// Of so many frames that were lost right before that time, those that no pause leaves out.
    [[nodiscard]] std::uint64_t lostOutside(std::uint64_t time, std::uint64_t lostFrames,
                                            double sampleRate) const {
        if (lostFrames == 0 || !(sampleRate > 0)) {
            return 0;
        }
        const double length =
            std::min(static_cast<double>(lostFrames) / sampleRate * 1e6, static_cast<double>(time));
        const auto begin = time - static_cast<std::uint64_t>(length);
        const std::uint64_t paused = before(time) - before(begin);
        const double left = length - static_cast<double>(paused);
        return paused == 0 ? lostFrames
                           : static_cast<std::uint64_t>(std::max(left, 0.0) / 1e6 * sampleRate);
    }

  private:
    struct Pause {
        std::uint64_t begin;
        std::uint64_t end;
    };
    std::vector<Pause> pauses_;
};

}  // namespace tqrecorder
