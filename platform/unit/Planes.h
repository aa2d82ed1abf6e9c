#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace tqplatform {

/// Float samples of one bus, one plane per channel.
class Planes {
  public:
    Planes(UInt32 channels, UInt32 frames)
        : samples_(static_cast<std::size_t>(channels) * frames), planes_(channels) {
        for (UInt32 i = 0; i < channels; ++i) {
            planes_[i] = samples_.data() + static_cast<std::size_t>(i) * frames;
        }
    }
    Planes(const Planes&) = delete;
    Planes& operator=(const Planes&) = delete;

    [[nodiscard]] UInt32 channels() const noexcept { return static_cast<UInt32>(planes_.size()); }
    [[nodiscard]] float* const* data() noexcept { return planes_.data(); }

  private:
    std::vector<float> samples_;
    std::vector<float*> planes_;
};

/// [real-time safe] Zeroes `frames` samples of each plane, from `first` on.
inline void silence(float* const* planes, UInt32 channels, UInt32 first, UInt32 frames) noexcept {
    for (UInt32 i = 0; i < channels; ++i) {
        std::fill_n(planes[i] + first, frames, 0.0F);
    }
}

}  // namespace tqplatform
