#pragma once

#include <array>
#include <atomic>
#include <vector>

#include "AudioUnits.h"
#include "Sounds.h"

namespace game {

/// One-shot effects: an audio graph in which a mixer feeds the output unit, 44100 Hz 16-bit
/// stereo. Each bus of the mixer plays one effect at a time.
class Effects {
  public:
    static constexpr int kSampleRate = 44100;
    static constexpr int kChannels = 2;
    static constexpr UInt32 kBuses = 4;

    /// Throws HostError when the graph cannot be built.
    explicit Effects(std::vector<Clip<SInt16>> clips);
    ~Effects();
    Effects(const Effects&) = delete;
    Effects& operator=(const Effects&) = delete;

    void start();
    void stop();
    /// Begins clip `index` on `bus` (0 to kBuses - 1) with the next block; what played there ends.
    /// `pan` is -1 (left) to 1 (right).
    void trigger(std::size_t index, UInt32 bus, float volume, float pan);

  private:
    struct Bus {
        std::atomic<const Clip<SInt16>*> next{
            nullptr};                           // set by the game, taken by the render thread
        const Clip<SInt16>* playing = nullptr;  // [render thread]
        std::size_t position = 0;               // [render thread]
    };

    void build();
    /// [render thread] Copies from memory. `refCon` is the Bus.
    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                           AudioBufferList* data) noexcept;

    std::vector<Clip<SInt16>> clips_;
    std::array<Bus, kBuses> buses_;
    AUGraph graph_ = nullptr;
    AudioUnit mixer_ = nullptr;
};

}  // namespace game
