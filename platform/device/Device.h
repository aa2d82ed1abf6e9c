#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <memory>
#include <string_view>

#include "common/AudioView.h"

// A device is one clock. Once per period it hands every client one slice, in the order in which
// the clients were added, all on the device's own thread; it sums what they render and plays it.
// One clock and one thread for all units of a process, like the hardware cycle of a phone: tracks
// captured from different units can never drift apart.

namespace tqplatform {

/// One period of the device. Float32 planar, at the device's rate.
struct DeviceSlice {
    const AudioTimeStamp* time;  ///< sample, host time and rate scalar valid; sample time is the
                                 ///< device's own, clients count their own from their start
    tqcommon::ConstAudioView input;  ///< planes of the microphone, inputChannels() of them
    tqcommon::AudioView output;      ///< outputChannels() planes of this client alone, zeroed

    /// 1 to Device::maximumFrames().
    [[nodiscard]] UInt32 frames() const noexcept { return output.frames(); }
};

/// What plays and records on a device: an output unit.
class DeviceClient {
  public:
    /// [device thread] [real-time safe] Renders one slice into slice.output.
    virtual void render(const DeviceSlice& slice) noexcept = 0;

  protected:
    ~DeviceClient() = default;
};

class Device {
  public:
    virtual ~Device() = default;
    [[nodiscard]] virtual std::string_view name() const noexcept = 0;
    [[nodiscard]] virtual Float64 sampleRate() const noexcept = 0;
    [[nodiscard]] virtual UInt32 outputChannels() const noexcept = 0;
    [[nodiscard]] virtual UInt32 inputChannels() const noexcept = 0;
    [[nodiscard]] virtual UInt32 maximumFrames() const noexcept = 0;
    /// [any thread] Adds a client behind the others; adding it twice changes nothing. The first
    /// client starts the device. False when the device cannot run.
    [[nodiscard]] virtual bool addClient(DeviceClient& client) = 0;
    /// [any thread] When it returns, client.render() is not running and will not be entered
    /// again; on the device thread itself it returns at once (render() may be its caller) and
    /// the client is not entered again. Unknown clients are ignored.
    virtual void removeClient(DeviceClient& client) = 0;
    /// True on the thread that is inside a slice of this device.
    [[nodiscard]] virtual bool isDeviceThread() const noexcept = 0;
};

/// The device of this process, chosen once by TQ_AUDIO_DEVICE; never destroyed.
[[nodiscard]] Device& sharedDevice();

}  // namespace tqplatform
