#include "device/HostTimes.h"

#include <algorithm>

namespace tqplatform {

namespace {

constexpr Float64 kTicksPerSecond = 1e9;

UInt64 durationOf(const BlockRequest& block, Float64 sampleRate) noexcept {
    return static_cast<UInt64>(block.frames * kTicksPerSecond / sampleRate);
}

}  // namespace

void HostTimes::ofDevice(BlockRequest& block, Float64 sampleRate) noexcept {
    const UInt64 duration = durationOf(block, sampleRate);
    const bool isMicrophone = block.heardTime != 0 && block.played.frames() == 0;
    if (isMicrophone) {
        block.hostTime = block.heardTime + (away_ != 0 ? away_ : 2 * duration);
    } else if (block.heardTime != 0 && block.heardTime < block.hostTime) {
        away_ = block.hostTime - block.heardTime;
    }
    isClock_ = false;
    settle(block, duration);
}

void HostTimes::ofClock(BlockRequest& block, Float64 sampleRate) noexcept {
    if (!isClock_) {
        isClock_ = true;
        ahead_ = next_ > block.hostTime ? next_ - block.hostTime : 0;
    }
    block.hostTime += ahead_;
    settle(block, durationOf(block, sampleRate));
}

void HostTimes::settle(BlockRequest& block, UInt64 duration) noexcept {
    if (away_ == 0) {
        // A block was heard while the one before was played, and is played when it was rendered.
        away_ = 2 * duration;
    }
    block.hostTime = std::max(block.hostTime, last_);
    if (block.heardTime == 0) {
        block.heardTime = block.hostTime - std::min(away_, block.hostTime);
    }
    block.heardTime = std::max(block.heardTime, lastHeard_);
    last_ = block.hostTime;
    next_ = last_ + duration;
    lastHeard_ = block.heardTime;
}

}  // namespace tqplatform
