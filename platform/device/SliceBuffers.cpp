#include "device/SliceBuffers.h"

namespace tqplatform {

using tqcommon::AudioView;
using tqcommon::ConstAudioView;

SliceBuffers::SliceBuffers(UInt32 inputChannels, UInt32 outputChannels, UInt32 maximumFrames)
    : input_(inputChannels, maximumFrames),
      client_(outputChannels, maximumFrames),
      sum_(outputChannels, maximumFrames),
      silence_(1, maximumFrames),
      slice_{nullptr, 0, {}, {}} {
}

void SliceBuffers::begin(const AudioTimeStamp& time, UInt64 heardTime, const BlockRequest& block,
                         UInt32 first, UInt32 frames) noexcept {
    slice_ = {&time,
              heardTime,
              {silence_.view().plane(0), input_.channels(), frames, 0},
              client_.view(frames)};
    if (block.heard.channels() == input_.channels() && block.heard.frames() == block.frames) {
        slice_.input = block.heard.slice(first, frames);
        if (!slice_.input.isPlanar()) {
            copy(slice_.input, input_.view(frames));
            slice_.input = input_.view(frames);
        }
    }
    played_ = planes_ = {};
    if (block.played.channels() == sum_.channels() && block.played.frames() == block.frames) {
        played_ = block.played.slice(first, frames);
        planes_ = played_.isPlanar() ? played_ : sum_.view(frames);
        silence(planes_);
    }
}

const DeviceSlice& SliceBuffers::next() noexcept {
    silence(slice_.output);
    return slice_;
}

void SliceBuffers::mix() noexcept {
    const UInt32 frames = planes_.frames();
    for (UInt32 channel = 0; channel < planes_.channels(); ++channel) {
        const float* const from = slice_.output.plane(channel);
        float* const to = planes_.plane(channel);
        for (UInt32 frame = 0; frame < frames; ++frame) {
            // What is no number would spoil what all the others play.
            to[frame] += from[frame] == from[frame] ? from[frame] : 0.0F;
        }
    }
}

void SliceBuffers::end() noexcept {
    if (!played_.isPlanar()) {
        copy(planes_, played_);
    }
}

}  // namespace tqplatform
