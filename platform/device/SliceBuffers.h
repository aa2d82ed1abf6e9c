#pragma once

#include "common/Planes.h"
#include "device/Device.h"

namespace tqplatform {

/// All memory of a slice, allocated once: the microphone's planes, the planes of the client whose
/// turn it is, and the sum of what the clients rendered.
class SliceBuffers {
  public:
    SliceBuffers(UInt32 inputChannels, UInt32 outputChannels, UInt32 maximumFrames);

    [[nodiscard]] tqcommon::AudioView input(UInt32 frames) noexcept { return input_.view(frames); }
    [[nodiscard]] tqcommon::AudioView sum(UInt32 frames) noexcept { return sum_.view(frames); }

    /// [real-time safe] The slice for the next client, its output planes zeroed. Valid until the
    /// next call; `time` has to live as long.
    [[nodiscard]] const DeviceSlice& begin(const AudioTimeStamp& time, UInt32 frames) noexcept;
    /// [real-time safe] Adds what the client of the last begin() rendered to the sum.
    void mix(UInt32 frames) noexcept;

  private:
    tqcommon::Planes input_;
    tqcommon::Planes client_;
    tqcommon::Planes sum_;
    DeviceSlice slice_;
};

}  // namespace tqplatform
