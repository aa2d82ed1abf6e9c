#pragma once

#include "AudioUnits.h"
#include "Sounds.h"

namespace game {

/// Background music: an output unit of its own, 48000 Hz stereo float, one buffer per channel.
class Music {
  public:
    static constexpr int kSampleRate = 48000;
    static constexpr int kChannels = 2;

    explicit Music(Clip<float> clip);
    void start();
    void stop();

  private:
    /// [render thread] Copies from memory.
    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                           AudioBufferList* data) noexcept;

    Clip<float> clip_;
    std::size_t position_ = 0;  // [render thread]
    OutputUnit unit_;
};

}  // namespace game
