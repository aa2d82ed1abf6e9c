#include "unit/ChannelFold.h"

#include <algorithm>
#include <cstddef>
#include <numbers>

namespace tqplatform {

namespace {

constexpr float kLower = 1 / std::numbers::sqrt2_v<float>;  ///< by 3 dB

void addPlane(const float* from, float gain, float* to, UInt32 frames) noexcept TQ_NONBLOCKING {
    if (gain != 0) {
        for (UInt32 i = 0; i < frames; ++i) {
            to[i] += gain * from[i];
        }
    }
}

}  // namespace

ChannelFold::Gains ChannelFold::gainsOf(AudioChannelLabel label) noexcept {
    switch (label) {
        case kAudioChannelLabel_Left:
            return {1, 0};
        case kAudioChannelLabel_Right:
            return {0, 1};
        case kAudioChannelLabel_LeftSurround:
        case kAudioChannelLabel_LeftCenter:
        case kAudioChannelLabel_LeftSurroundDirect:
        case kAudioChannelLabel_RearSurroundLeft:
        case kAudioChannelLabel_LeftWide:
        case kAudioChannelLabel_LeftTopFront:
        case kAudioChannelLabel_LeftTopMiddle:
        case kAudioChannelLabel_TopBackLeft:
        case kAudioChannelLabel_LeftTopRear:
            return {kLower, 0};
        case kAudioChannelLabel_RightSurround:
        case kAudioChannelLabel_RightCenter:
        case kAudioChannelLabel_RightSurroundDirect:
        case kAudioChannelLabel_RearSurroundRight:
        case kAudioChannelLabel_RightWide:
        case kAudioChannelLabel_RightTopFront:
        case kAudioChannelLabel_RightTopMiddle:
        case kAudioChannelLabel_TopBackRight:
        case kAudioChannelLabel_RightTopRear:
            return {0, kLower};
        case kAudioChannelLabel_LFEScreen:
        case kAudioChannelLabel_LFE2:
        case kAudioChannelLabel_Unused:
            return {0, 0};
        case kAudioChannelLabel_CenterSurround:
            // A surround, and in the middle.
            return {kLower * kLower, kLower * kLower};
        default:
            return {kLower, kLower};
    }
}

ChannelFold::ChannelFold(const ChannelLayout& layout) {
    const std::vector<AudioChannelDescription> described = layout.descriptions();
    const auto isSaid = [&](AudioChannelLabel label) {
        return std::any_of(described.begin(), described.end(),
                           [=](const auto& channel) { return channel.mChannelLabel == label; });
    };
    if (isSaid(kAudioChannelLabel_Left) && isSaid(kAudioChannelLabel_Right)) {
        for (const AudioChannelDescription& channel : described) {
            gains_.push_back(gainsOf(channel.mChannelLabel));
        }
    }
}

void ChannelFold::apply(const tqcommon::ConstAudioView& source,
                        const tqcommon::AudioView& destination) const noexcept TQ_NONBLOCKING {
    const UInt32 frames = destination.frames();
    silence(destination);
    const UInt32 channels = std::min(source.channels(), static_cast<UInt32>(gains_.size()));
    for (UInt32 channel = 0; channel < channels; ++channel) {
        const float* const plane = source.plane(channel);
        addPlane(plane, gains_[channel].left, destination.plane(0), frames);
        addPlane(plane, gains_[channel].right, destination.plane(1), frames);
    }
}

}  // namespace tqplatform
