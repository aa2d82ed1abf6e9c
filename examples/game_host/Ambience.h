#pragma once

#include "AudioUnits.h"
#include "Sounds.h"

namespace game {

/// Wind in the trees: an output unit that comes and goes while the rest plays on, 22050 Hz 16-bit
/// mono. Plays from its creation to its destruction.
class Ambience {
  public:
    static constexpr int kSampleRate = 22050;
    static constexpr int kChannels = 1;

    /// `clip` must outlive the ambience.
    explicit Ambience(const Clip<SInt16>& clip);

  private:
    /// [render thread] Copies from memory.
    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                           AudioBufferList* data) noexcept;

    const Clip<SInt16>& clip_;
    std::size_t position_ = 0;  // [render thread]
    OutputUnit unit_;
};

}  // namespace game
