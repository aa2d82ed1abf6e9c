#include "unit/RateGroup.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace tqplatform {

using tqcommon::AudioView;
using tqcommon::ConstAudioView;

namespace {

/// Frames of input that a slice can need at most: one more than the ratio says for the frame
/// that is begun.
UInt32 mostInput(RateRatio ratio, UInt32 frames) {
    // More at a time is no slice of anything, but a mistake that would cost all memory.
    constexpr std::int64_t kLimit = std::int64_t{1} << 23;
    const std::int64_t most = ratio.inputFor(frames, 0) + 1;
    if (most > kLimit) {
        throw std::runtime_error("a slice needs too much input");
    }
    return static_cast<UInt32>(most);
}

[[gnu::always_inline]] inline void addScaled(const float* from, float gain, float* to,
                                             UInt32 frames) {
    for (UInt32 i = 0; i < frames; ++i) {
        to[i] += from[i] * gain;
    }
}

#if defined(__x86_64__)
/// The same sums in wider vectors; nothing is fused, so every machine gives the same bits.
[[gnu::target("avx2")]] void addScaledWide(const float* from, float gain, float* to,
                                           UInt32 frames) {
    addScaled(from, gain, to, frames);
}
#endif

void addChannel(const float* from, float gain, float* to, UInt32 frames) {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) {
        addScaledWide(from, gain, to, frames);
        return;
    }
#endif
    addScaled(from, gain, to, frames);
}

}  // namespace

RateGroup::RateGroup(Float64 inputRate, Float64 outputRate, UInt32 channels, UInt32 maximumFrames)
    : inputRate_(inputRate),
      outputRate_(outputRate),
      maximumFrames_(maximumFrames),
      ratio_(RateRatio::of(inputRate, outputRate)),
      mostInputFrames_(mostInput(ratio_, maximumFrames)),
      converter_(inputRate, outputRate, channels, maximumFrames),
      sum_(channels, mostInputFrames_),
      converted_(channels, maximumFrames) {
}

bool RateGroup::fits(Float64 inputRate, Float64 outputRate, UInt32 channels,
                     UInt32 maximumFrames) const noexcept {
    return inputRate_ == inputRate && outputRate_ == outputRate && sum_.channels() == channels &&
           maximumFrames_ == maximumFrames;
}

void RateGroup::begin(UInt32 frames, Float64 sampleTime) noexcept {
    if (ratio_.equal()) {
        sampleTime_ = sampleTime;
        inputFrames_ = frames;
    } else {
        const bool goesOn = started_ && sampleTime == nextOutputTime_;
        sampleTime_ =
            goesOn ? sampleTime_ + inputFrames_ : std::round(sampleTime * inputRate_ / outputRate_);
        inputFrames_ =
            std::min(static_cast<UInt32>(ratio_.inputFor(frames, credit_)), mostInputFrames_);
        credit_ += inputFrames_ * ratio_.output - frames * ratio_.input;
    }
    started_ = true;
    nextOutputTime_ = sampleTime + frames;
    outputFrames_ = frames;
    given_ = 0;
    silence(sum_.view(inputFrames_));
}

void RateGroup::add(UInt32 first, const ConstAudioView& planes, const Float32* gains) noexcept {
    const AudioView sum = sum_.view();
    for (UInt32 channel = 0; channel < sum.channels(); ++channel) {
        addChannel(planes.plane(channel), gains[channel], sum.plane(channel) + first,
                   planes.frames());
    }
}

void RateGroup::finish(const AudioView& planes, bool isFirst) noexcept {
    AudioView made = sum_.view();
    if (!ratio_.equal()) {
        made = isFirst ? planes : converted_.view(outputFrames_);
        static_cast<void>(converter_.pull(made, giveSum, this));
        if (isFirst) {
            return;
        }
    }
    for (UInt32 channel = 0; channel < sum_.channels(); ++channel) {
        if (isFirst) {
            std::copy_n(made.plane(channel), outputFrames_, planes.plane(channel));
        } else {
            addChannel(made.plane(channel), 1, planes.plane(channel), outputFrames_);
        }
    }
}

OSStatus RateGroup::giveSum(void* context, const AudioView& planes) {
    auto& self = *static_cast<RateGroup*>(context);
    const UInt32 held = std::min(planes.frames(), self.inputFrames_ - self.given_);
    copy(self.sum_.view().slice(self.given_, held), planes.slice(0, held));
    silence(planes.slice(held, planes.frames() - held));
    self.given_ += held;
    return noErr;
}

void RateGroup::restart() noexcept {
    converter_.reset();
    started_ = false;
    credit_ = 0;
}

}  // namespace tqplatform
