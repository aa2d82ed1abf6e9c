#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include "common/AudioView.h"
#include "common/RealTime.h"
#include "device/Backend.h"

namespace tqplatform {

/// One period of the device. Float32 planar, at the device's rate.
struct DeviceSlice {
    const AudioTimeStamp* time;  ///< sample, host time and rate scalar valid; sample time is the
                                 ///< device's own, clients count their own from their start
    UInt64 heardTime;            ///< when the first frame of `input` was heard, as host time
    tqcommon::ConstAudioView input;  ///< planes of the microphone, Device::inputChannels()
    tqcommon::AudioView output;  ///< planes of this client alone, Device::outputChannels(), zeroed

    /// 1 to Device::maximumFrames().
    [[nodiscard]] UInt32 frames() const noexcept { return output.frames(); }
};

/// What plays and records on a device: an output unit.
class DeviceClient {
  public:
    /// [render thread] [real-time safe] Renders one slice into slice.output.
    virtual void render(const DeviceSlice& slice) noexcept TQ_NONBLOCKING = 0;

    /// [any thread] Read when it is added. What is not heard is left out of what the device plays.
    [[nodiscard]] virtual ClientWants wants() const noexcept { return {.heard = true}; }

  protected:
    ~DeviceClient() = default;
};

}  // namespace tqplatform
