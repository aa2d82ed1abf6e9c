#pragma once

#include "common/RealTime.h"
#include "device/Backend.h"

namespace tqplatform {

/// When blocks are played and when the microphone heard them, over a device and a clock that drive
/// in turn. Each says its own time, a device's up to a tenth of a second ahead of a clock's; what
/// clients are told never goes back. One thread at a time. [render thread] [real-time safe]
class HostTimes {
  public:
    /// A block of the device. One that has a `heardTime` and no room to play is the microphone's
    /// alone.
    void ofDevice(BlockRequest& block, Float64 sampleRate) noexcept TQ_NONBLOCKING;
    /// A block of the clock: as far ahead of the clock's own time as the device was.
    void ofClock(BlockRequest& block, Float64 sampleRate) noexcept TQ_NONBLOCKING;

  private:
    void settle(BlockRequest& block, UInt64 duration) noexcept;

    UInt64 last_ = 0;       ///< when the last block is played
    UInt64 next_ = 0;       ///< when the one behind it should be
    UInt64 lastHeard_ = 0;  ///< when the last block was heard
    UInt64 away_ = 0;       ///< between hearing and playing; 0 before the first block
    UInt64 ahead_ = 0;      ///< of the clock's time
    bool isClock_ = false;  ///< the last block was the clock's
};

}  // namespace tqplatform
