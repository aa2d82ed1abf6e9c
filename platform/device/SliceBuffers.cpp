#include "device/SliceBuffers.h"

namespace tqplatform {

SliceBuffers::SliceBuffers(UInt32 inputChannels, UInt32 outputChannels, UInt32 maximumFrames)
    : input_(inputChannels, maximumFrames),
      client_(outputChannels, maximumFrames),
      sum_(outputChannels, maximumFrames),
      slice_{nullptr, {}, {}} {
}

const DeviceSlice& SliceBuffers::begin(const AudioTimeStamp& time, UInt32 frames) noexcept {
    slice_ = {&time, input_.view(frames), client_.view(frames)};
    silence(slice_.output);
    return slice_;
}

void SliceBuffers::mix(UInt32 frames) noexcept {
    for (UInt32 channel = 0; channel < sum_.channels(); ++channel) {
        const float* const from = client_.view().plane(channel);
        float* const to = sum_.view().plane(channel);
        for (UInt32 frame = 0; frame < frames; ++frame) {
            // What is no number would spoil what all the others play.
            to[frame] += from[frame] == from[frame] ? from[frame] : 0.0F;
        }
    }
}

}  // namespace tqplatform
