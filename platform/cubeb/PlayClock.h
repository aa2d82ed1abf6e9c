#pragma once

#include <cstdint>

namespace tqcubeb {

/// When the blocks of a device are heard, or were. The device lets them come late and several at
/// once, never too early: what the earliest of them say counts, and what comes late draws only as
/// much as a clock may drift. [render thread] [real-time safe]
class PlayClock {
  public:
    explicit PlayClock(double framesPerSecond) noexcept : framesPerSecond_(framesPerSecond) {}

    /// A block of `frames` begins, which is heard at `saidNs` at the latest. Returns when it is, in
    /// ns; never earlier than the block before.
    std::uint64_t next(std::uint64_t saidNs, std::uint32_t frames) noexcept;

  private:
    double framesPerSecond_;
    double lastNs_ = 0;
    double expectedNs_ = 0;  ///< of the next block; 0 before the first
};

}  // namespace tqcubeb
