#pragma once

// What the back end asks of the session that it keeps time with.

#include <chrono>
#include <cstdint>
#include <vector>

namespace ableton {

class Link {
  public:
    class SessionState {};
    struct Clock {
        [[nodiscard]] std::chrono::microseconds ticksToMicros(std::uint64_t ticks) const {
            return std::chrono::microseconds{ticks / 1000};
        }
    };
    [[nodiscard]] Clock clock() const { return {}; }
};

}  // namespace ableton
