#pragma once

#include <AudioToolbox/AudioToolbox.h>

namespace game {

/// Throws HostError naming `what` unless `status` is noErr.
void check(OSStatus status, const char* what);

[[nodiscard]] AudioComponentDescription componentDescription(OSType type, OSType subType);

/// 32-bit float, one buffer per channel.
[[nodiscard]] AudioStreamBasicDescription floatFormat(double sampleRate, UInt32 channels);
/// 16-bit integer, interleaved.
[[nodiscard]] AudioStreamBasicDescription shortFormat(double sampleRate, UInt32 channels);

/// An output unit from its creation to its disposal. Every call throws HostError when the
/// platform refuses it, except in the destructor.
class OutputUnit {
  public:
    explicit OutputUnit(OSType subType);
    /// Stops, uninitialises and disposes.
    ~OutputUnit();
    OutputUnit(const OutputUnit&) = delete;
    OutputUnit& operator=(const OutputUnit&) = delete;

    [[nodiscard]] AudioUnit handle() const { return unit_; }

    /// What the game renders for the loudspeaker.
    void setOutputFormat(const AudioStreamBasicDescription& format);
    void setRenderCallback(AURenderCallback callback, void* refCon);

    /// Switches the microphone on. Before initialize().
    void enableMicrophone(const AudioStreamBasicDescription& format, AURenderCallback callback,
                          void* refCon);

    void initialize();
    void start();
    void stop();

  private:
    AudioUnit unit_ = nullptr;
};

}  // namespace game
