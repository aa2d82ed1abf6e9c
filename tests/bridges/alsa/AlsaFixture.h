#pragma once

#include <memory>

#include "bridges/alsa/FakeAlsa.h"
#include "bridges/core/NativeCalls.h"

namespace bridgetests {

/// A program with one pcm of 48 kHz, 16 bits, stereo.
class AlsaCalls : public NativeCalls {
  protected:
    AlsaCalls() : NativeCalls(tq::bridges::alsaApi(), "alsa-1 default") {}
    void TearDown() override {
        snd_pcm_close(pcm.get());
        NativeCalls::TearDown();
    }

    [[nodiscard]] static std::unique_ptr<snd_pcm_t> make(const std::string& name) {
        auto made = std::make_unique<snd_pcm_t>();
        made->name = name;
        return made;
    }
    static void configure(snd_pcm_t& one, const _snd_pcm_hw_params& wanted = {}) {
        auto parameters = wanted;
        ASSERT_EQ(snd_pcm_hw_params(&one, &parameters), 0);
    }
    /// All of it at once.
    void write(const Sound& sound) {
        ASSERT_EQ(snd_pcm_writei(pcm.get(), sound.bytes.data(), sound.frames()),
                  static_cast<snd_pcm_sframes_t>(sound.frames()));
    }
    /// The program closes it, and all that it has is played.
    void close() {
        snd_pcm_close(pcm.get());
        playOut(firstName());
    }

    const Sound noise = markedNoise({}, 24000);
    const Sound other = markedNoise({}, 9600, 2);
    const std::unique_ptr<snd_pcm_t> pcm = make("default");
};

}  // namespace bridgetests
