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
    /// A block of the clock.
    void ofClock(BlockRequest& block, Float64 sampleRate) noexcept TQ_NONBLOCKING;
    /// The device is over, or has stood still. When the first block of the clock is to be played so
    /// that all that was rendered takes as long as it plays: behind what the device has in hand,
    /// and later by what the clock had rendered that the device began beside.
    [[nodiscard]] UInt64 deviceIsOver() noexcept TQ_NONBLOCKING;

  private:
    void settle(BlockRequest& block, UInt64 duration) noexcept;

    UInt64 last_ = 0;       ///< when the last block is played
    UInt64 next_ = 0;       ///< when the one behind it should be
    UInt64 lastHeard_ = 0;  ///< when the last block was heard
    UInt64 away_ = 0;       ///< between hearing and playing; 0 before the first block
    UInt64 surplus_ = 0;    ///< rendered for times at which a device had begun
    bool isFirst_ = true;   ///< the device's next block is its first
    UInt64 taken_ = 0;      ///< when what was rendered before the device began is over
    UInt64 began_ = 0;      ///< when the device plays its first frame
    UInt64 asked_ = 0;  ///< the length of what the device has asked for, as far as it is counted
};

}  // namespace tqplatform
