#include "device/SliceBuffers.h"

#include <cstring>
#include <new>

namespace tqplatform {

namespace {

constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kFloatsPerLine = kCacheLine / sizeof(float);

}  // namespace

SlicePlanes::SlicePlanes(UInt32 channels, UInt32 frames) : planes_(channels) {
    const std::size_t lines = (frames + kFloatsPerLine - 1) / kFloatsPerLine;
    const std::size_t stride = lines * kFloatsPerLine;
    const std::size_t bytes = stride * channels * sizeof(float);
    memory_.reset(static_cast<float*>(std::aligned_alloc(kCacheLine, bytes)));
    if (!memory_) {
        throw std::bad_alloc();
    }
    std::memset(memory_.get(), 0, bytes);
    for (std::size_t channel = 0; channel < channels; ++channel) {
        planes_[channel] = memory_.get() + channel * stride;
    }
}

void SlicePlanes::clear(UInt32 frames) noexcept {
    for (float* const plane : planes_) {
        std::memset(plane, 0, frames * sizeof(float));
    }
}

SliceBuffers::SliceBuffers(UInt32 inputChannels, UInt32 outputChannels, UInt32 maximumFrames)
    : input_(inputChannels, maximumFrames),
      client_(outputChannels, maximumFrames),
      sum_(outputChannels, maximumFrames),
      slice_{nullptr, 0, input_.data(), client_.data()} {
}

const DeviceSlice& SliceBuffers::begin(const AudioTimeStamp& time, UInt32 frames) noexcept {
    client_.clear(frames);
    slice_.time = &time;
    slice_.frames = frames;
    return slice_;
}

void SliceBuffers::mix(UInt32 frames) noexcept {
    for (UInt32 channel = 0; channel < sum_.channels(); ++channel) {
        const float* const from = client_.data()[channel];
        float* const to = sum_.data()[channel];
        for (UInt32 frame = 0; frame < frames; ++frame) {
            // What is no number would spoil what all the others play.
            to[frame] += from[frame] == from[frame] ? from[frame] : 0.0F;
        }
    }
}

}  // namespace tqplatform
