#pragma once

#include <SDL.h>

#include <algorithm>
#include <cstring>

#include "bridges/core/NativeCalls.h"
#include "bridges/sdl/FakeSdl.h"

namespace bridgetests {

/// What the program's callback plays from.
struct Source {
    std::string bytes;
    std::size_t place = 0;

    static void fill(void* self, Uint8* buffer, int length) {
        auto& source = *static_cast<Source*>(self);
        const auto wanted = static_cast<std::size_t>(length);
        const std::size_t part = std::min(wanted, source.bytes.size() - source.place);
        std::memcpy(buffer, source.bytes.data() + source.place, part);
        std::memset(buffer + part, 0, wanted - part);
        source.place += part;
    }
};

/// A program with devices of 48 kHz, 16 bits, stereo, where it does not say another format.
struct SdlCalls : NativeCalls {
    SdlCalls() : NativeCalls(tq::bridges::sdlApi(), "sdl-1") {}
    void SetUp() override {
        sdl = {};
        NativeCalls::SetUp();
    }
    void TearDown() override {
        SDL_Quit();
        NativeCalls::TearDown();
    }

    static SDL_AudioSpec spec(Source* source, SDL_AudioFormat format = AUDIO_S16LSB,
                              Uint8 channels = 2, int rate = 48000) {
        SDL_AudioSpec wanted{};
        wanted.freq = rate;
        wanted.format = format;
        wanted.channels = channels;
        wanted.samples = kBuffer;
        wanted.callback = source == nullptr ? nullptr : &Source::fill;
        wanted.userdata = source;
        return wanted;
    }
    static SDL_AudioDeviceID open(const SDL_AudioSpec& wanted, const char* name = nullptr) {
        const SDL_AudioDeviceID id = SDL_OpenAudioDevice(name, 0, &wanted, nullptr, 0);
        EXPECT_NE(id, 0U);
        SDL_PauseAudioDevice(id, 0);
        return id;
    }
    /// The device's thread asks that often.
    std::string play(SDL_AudioDeviceID id, std::size_t buffers) {
        std::string played;
        for (std::size_t i = 0; i < buffers; ++i) {
            played += sdl.play(id);
        }
        return played;
    }
    static int queue(SDL_AudioDeviceID id, std::string_view bytes) {
        return SDL_QueueAudio(id, bytes.data(), static_cast<Uint32>(bytes.size()));
    }
    void close(SDL_AudioDeviceID id) {
        SDL_CloseAudioDevice(id);
        playOut(firstName());
    }

    static constexpr Uint16 kBuffer = 1000;
    static constexpr std::size_t kBuffers = 24;
    FakeSdl& sdl = FakeSdl::shared();
    const Sound noise = markedNoise({}, kBuffers* kBuffer);
    Source source{noise.bytes};
};

}  // namespace bridgetests
