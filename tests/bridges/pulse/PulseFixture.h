#pragma once

#include <memory>

#include "bridges/core/NativeCalls.h"
#include "bridges/pulse/FakePulse.h"

namespace bridgetests {

inline constexpr std::size_t kFrameBytes = 4;
/// Frames by which the unit may be behind the server, on this device.
inline constexpr std::size_t kBehind = 4800;

/// A program with one stream of 48 kHz, 16 bits, stereo.
class PulseCalls : public NativeCalls {
  protected:
    PulseCalls() : NativeCalls(tq::bridges::pulseApi(), "pulse-1 game: music") {}
    void SetUp() override {
        NativeCalls::SetUp();
        const auto sound = tq::bridges::pulseSoundApi().rebindings;
        ASSERT_EQ(tqhook_rebind(sound.data(), sound.size(), nullptr), 0);
        context = pa_context_new(nullptr, "game");
        stream = make("music");
    }
    void TearDown() override {
        pa_stream_disconnect(stream.get());
        pa_stream_unref(stream.get());
        pa_context_unref(context);
        NativeCalls::TearDown();
    }

    [[nodiscard]] std::unique_ptr<pa_stream> make(const char* name) const {
        const pa_sample_spec spec{PA_SAMPLE_S16NE, 48000, 2};
        return std::unique_ptr<pa_stream>(pa_stream_new(context, name, &spec, nullptr));
    }
    static void becomesReady(pa_stream& one) {
        one.state = PA_STREAM_READY;
        EXPECT_EQ(pa_stream_get_state(&one), PA_STREAM_READY);
    }
    void play(pa_stream_flags_t flags = PA_STREAM_NOFLAGS) {
        ASSERT_EQ(
            pa_stream_connect_playback(stream.get(), nullptr, nullptr, flags, nullptr, nullptr), 0);
        becomesReady(*stream);
    }
    void write(const Sound& sound, std::int64_t frames = 0,
               pa_seek_mode_t seek = PA_SEEK_RELATIVE) {
        ASSERT_EQ(pa_stream_write(stream.get(), sound.bytes.data(), sound.bytes.size(), nullptr,
                                  frames * static_cast<std::int64_t>(kFrameBytes), seek),
                  0);
    }
    void end() {
        pa_stream_disconnect(stream.get());
        playOut(firstName());
    }
    /// The noise is written; it plays and is on the track, alone and whole.
    void endsWithTheNoise() {
        playOn();
        end();
        expectHeard(noise);
    }

    const Sound noise = markedNoise({}, 24000);
    pa_context* context = nullptr;
    std::unique_ptr<pa_stream> stream;
};

}  // namespace bridgetests
