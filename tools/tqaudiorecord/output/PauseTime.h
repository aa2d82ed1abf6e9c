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
    /// How much of the time before was paused.
    [[nodiscard]] std::uint64_t before(std::uint64_t time) const {
        std::uint64_t all = 0;
        for (const Pause& pause : pauses_) {
            all += time > pause.begin ? std::min(time, pause.end) - pause.begin : 0;
        }
        return all;
    }

  private:
    struct Pause {
        std::uint64_t begin;
        std::uint64_t end;
    };
    std::vector<Pause> pauses_;
};

}  // namespace tqrecorder
