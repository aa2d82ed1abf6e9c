#include "device/HostTimes.h"

#include <algorithm>

namespace tqplatform {

namespace {

constexpr Float64 kTicksPerSecond = 1e9;
/// In ns: longer than any device's first requests, too short for clocks to drift apart.
constexpr UInt64 kBeginning = 400'000'000;

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
    if (isFirst_) {
        isFirst_ = false;
        taken_ = next_;
        began_ = block.hostTime;
        asked_ = 0;
    }
    if (asked_ < kBeginning) {
        // It may ask for what it has in hand in several pieces: the last of them know how early
        // the first is played.
        began_ = std::min(began_, block.hostTime - std::min(asked_, block.hostTime));
        asked_ += duration;
    }
    settle(block, duration);
}

void HostTimes::ofClock(BlockRequest& block, Float64 sampleRate) noexcept {
    surplus_ = 0;
    settle(block, durationOf(block, sampleRate));
}

UInt64 HostTimes::deviceIsOver() noexcept {
    if (!isFirst_) {
        isFirst_ = true;
        surplus_ += taken_ > began_ ? taken_ - began_ : 0;
    }
    return next_ + surplus_;
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
