#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <array>
#include <memory>
#include <vector>

#include "RZReplayAudioRecorderDelegate.h"
#include "RZReplayAudioUnitObject.h"

/// A new output unit of interleaved float stereo at 48000 Hz, started; the caller disposes of it.
/// Throws std::runtime_error.
AudioUnit startStereoUnit(AURenderCallbackStruct callback);

/// A program that plays through output units while the hooks are in place, on the manual device.
class HookedHost {
  public:
    /// Rebinds the process's calls, once; makes and starts units of interleaved float stereo at
    /// 48000 Hz that play what `callback` renders.
    explicit HookedHost(int units, AURenderCallback callback = render);
    ~HookedHost();
    HookedHost(const HookedHost&) = delete;
    HookedHost& operator=(const HookedHost&) = delete;

    /// A callback that does nothing, as the platform would call it without us.
    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                           AudioBufferList* ioData);
    /// What the platform calls instead, for the unit made last.
    OSStatus callIntercepted(UInt32 frames, AudioBufferList* ioData);
    /// Starts capture for one listener, by default of both the mix and the tracks; false when it
    /// failed.
    bool startCapture(std::uint64_t wanted = RZPCMDataTypePre | RZPCMDataTypePost);
    void stopCapture();
    /// Takes away what the blocks of the last unit have left in its rings.
    void emptyRings();
    [[nodiscard]] AudioUnit lastUnit() const { return units_.back(); }
    [[nodiscard]] RZReplayAudioUnitObject& lastObject() const { return *last_; }

  private:
    std::vector<AudioUnit> units_;
    std::shared_ptr<RZReplayAudioRecorderDelegate> listener_;
    std::shared_ptr<RZReplayAudioUnitObject> last_;
    std::vector<std::byte> drain_ = std::vector<std::byte>(65536);
};
