#include "unit/MicrophonePath.h"

#include <algorithm>
#include <utility>

#include "unit/BusReader.h"

namespace tqplatform {

using tqcommon::AudioView;
using tqcommon::ConstAudioView;

namespace {

/// Frames at the program's rate that `frames` of the device can make at most.
UInt32 mostOutput(RateRatio ratio, UInt32 frames) {
    return static_cast<UInt32>(static_cast<std::int64_t>(frames) * ratio.output / ratio.input) + 2;
}

}  // namespace

MicrophonePath::MicrophonePath(Float64 deviceRate, UInt32 deviceChannels, const PCMFormat& format,
                               UInt32 maximumFrames, ChannelMap map)
    : deviceRate_(deviceRate),
      deviceChannels_(deviceChannels),
      format_(format),
      maximumFrames_(maximumFrames),
      map_(std::move(map)),
      ratio_(RateRatio::of(deviceRate, format.sampleRate)),
      converter_(deviceRate, format.sampleRate, deviceChannels,
                 std::max(maximumFrames, mostOutput(ratio_, maximumFrames))),
      // One frame can be left over per input frame that an output frame stands for.
      heard_(deviceChannels, maximumFrames + static_cast<UInt32>(ratio_.inputFor(1, 0)) + 1),
      converted_(deviceChannels, mostOutput(ratio_, maximumFrames)),
      mapped_(format.channels, mostOutput(ratio_, maximumFrames)) {
}

UInt32 MicrophonePath::bring(const ConstAudioView& planes) noexcept {
    const UInt32 left = heardFrames_ - heardGiven_;
    for (UInt32 channel = 0; channel < deviceChannels_; ++channel) {
        float* const plane = heard_.view().plane(channel);
        std::copy_n(plane + heardGiven_, left, plane);
        std::copy_n(planes.plane(channel), planes.frames(), plane + left);
    }
    heardFrames_ = left + planes.frames();
    heardGiven_ = 0;
    // As many output frames as the input covers, and not one more.
    const std::int64_t covered =
        (std::int64_t{heardFrames_} * ratio_.output + credit_) / ratio_.input;
    convertedFrames_ = std::min(static_cast<UInt32>(covered), mostOutput(ratio_, maximumFrames_));
    credit_ += ratio_.inputFor(convertedFrames_, credit_) * ratio_.output -
               std::int64_t{convertedFrames_} * ratio_.input;
    const AudioView converted = converted_.view(convertedFrames_);
    static_cast<void>(converter_.pull(converted, giveHeard, this));
    if (map_.empty()) {
        mapChannels(converted, mapped_.view(convertedFrames_));
    } else {
        mapChannels(converted, map_, mapped_.view(convertedFrames_));
    }
    fetched_ = 0;
    return convertedFrames_;
}

OSStatus MicrophonePath::giveHeard(void* context, const AudioView& planes) {
    auto& self = *static_cast<MicrophonePath*>(context);
    const UInt32 held = std::min(planes.frames(), self.heardFrames_ - self.heardGiven_);
    copy(self.heard_.view().slice(self.heardGiven_, held), planes.slice(0, held));
    silence(planes.slice(held, planes.frames() - held));
    self.heardGiven_ += held;
    return noErr;
}

void MicrophonePath::fetch(UInt32 frames, AudioBufferList& list) noexcept {
    const UInt32 held = std::min(frames, convertedFrames_ - fetched_);
    silence(list, format_);
    fromFloat(mapped_.view().slice(fetched_, held), format_, list);
    fetched_ += held;
}

void MicrophonePath::restart() noexcept {
    converter_.reset();
    heardFrames_ = heardGiven_ = convertedFrames_ = fetched_ = 0;
    credit_ = 0;
}

bool MicrophonePath::fits(Float64 deviceRate, UInt32 deviceChannels, const PCMFormat& format,
                          UInt32 maximumFrames, const ChannelMap& map) const noexcept {
    return deviceRate_ == deviceRate && deviceChannels_ == deviceChannels &&
           sameFormat(format_, format) && maximumFrames_ == maximumFrames && map_ == map;
}

}  // namespace tqplatform
