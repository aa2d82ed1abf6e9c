#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <vector>

#include "device/Device.h"

namespace tqplatform {

/// Planes of floats in one block of memory, each plane on a cache line of its own.
class SlicePlanes {
  public:
    SlicePlanes(UInt32 channels, UInt32 frames);

    [[nodiscard]] float* const* data() const noexcept { return planes_.data(); }
    [[nodiscard]] UInt32 channels() const noexcept { return static_cast<UInt32>(planes_.size()); }
    void clear(UInt32 frames) noexcept;

  private:
    struct Free {
        void operator()(float* memory) const noexcept { std::free(memory); }
    };
    std::unique_ptr<float, Free> memory_;
    std::vector<float*> planes_;
};

/// All memory of a slice, allocated once: the microphone's planes, the planes of the client whose
/// turn it is, and the sum of what the clients rendered.
class SliceBuffers {
  public:
    SliceBuffers(UInt32 inputChannels, UInt32 outputChannels, UInt32 maximumFrames);

    [[nodiscard]] SlicePlanes& input() noexcept { return input_; }
    [[nodiscard]] SlicePlanes& sum() noexcept { return sum_; }

    /// [real-time safe] The slice for the next client, its output planes zeroed. Valid until the
    /// next call; `time` has to live as long.
    [[nodiscard]] const DeviceSlice& begin(const AudioTimeStamp& time, UInt32 frames) noexcept;
    /// [real-time safe] Adds what the client of the last begin() rendered to the sum.
    void mix(UInt32 frames) noexcept;

  private:
    SlicePlanes input_;
    SlicePlanes client_;
    SlicePlanes sum_;
    DeviceSlice slice_;
};

}  // namespace tqplatform
