#pragma once

#include <cstdint>

namespace tqcubeb {

/// When the blocks of a device are heard. Requests come in bursts and late; what is heard goes on
/// evenly. Each block's time is the last one's and its length, drawn a little towards what the
/// device says now. [render thread] [real-time safe]
class PlayClock {
  public:
    explicit PlayClock(double framesPerSecond) noexcept : framesPerSecond_(framesPerSecond) {}

    /// A block of `frames` begins; the device would let it be heard at `saidNs`. Returns when it
    /// is, in ns; never earlier than the block before.
    std::uint64_t next(std::uint64_t saidNs, std::uint32_t frames) noexcept;

  private:
    double framesPerSecond_;
    double expectedNs_ = 0;  ///< of the next block; 0 before the first
};

}  // namespace tqcubeb
