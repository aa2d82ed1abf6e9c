#include "newer_sdl.h"

#include <alsa/asoundlib.h>
#include <dlfcn.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>

namespace {

bool isInitialised = false;

/// What it needs of the library below, which it looks up by name.
struct Below {
    void* library = dlopen("libasound.so.2", RTLD_NOW | RTLD_LOCAL);

    template <class Function>
    Function* find(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(library, name));
    }
};

}  // namespace

struct SDL_AudioStream {
    Below below;
    snd_pcm_t* pcm = nullptr;
    std::string samples;
};

SDL_AudioStream* SDL_OpenAudioDeviceStream() {
    auto stream = std::make_unique<SDL_AudioStream>();
    const auto open = stream->below.find<decltype(snd_pcm_open)>("snd_pcm_open");
    const auto set = stream->below.find<decltype(snd_pcm_set_params)>("snd_pcm_set_params");
    if (open(&stream->pcm, "default", SND_PCM_STREAM_PLAYBACK, 0) != 0 ||
        set(stream->pcm, SND_PCM_FORMAT_S16, SND_PCM_ACCESS_RW_INTERLEAVED, 2, 48000, 1, 100000) !=
            0) {
        return nullptr;
    }
    return stream.release();
}

bool SDL_PutAudioStreamData(SDL_AudioStream* stream, const void* samples, std::size_t bytes) {
    stream->samples.append(static_cast<const char*>(samples), bytes);
    return true;
}

void SDL_DestroyAudioStream(SDL_AudioStream* stream) {
    const std::unique_ptr<SDL_AudioStream> own(stream);
    // Its own thread plays, as ever.
    std::thread([&] {
        const auto write = own->below.find<decltype(snd_pcm_writei)>("snd_pcm_writei");
        constexpr std::size_t kFrame = 4;
        for (std::size_t at = 0; at < own->samples.size();) {
            const auto frames = static_cast<snd_pcm_uframes_t>((own->samples.size() - at) / kFrame);
            const snd_pcm_sframes_t taken =
                write(own->pcm, own->samples.data() + at, std::min<snd_pcm_uframes_t>(frames, 480));
            if (taken < 0) {
                return;
            }
            at += static_cast<std::size_t>(taken) * kFrame;
        }
        own->below.find<decltype(snd_pcm_drain)>("snd_pcm_drain")(own->pcm);
    }).join();
    own->below.find<decltype(snd_pcm_close)>("snd_pcm_close")(own->pcm);
}

void SDL_CloseAudioDevice(unsigned /*device*/) {
}

bool SDL_Init(unsigned /*systems*/) {
    isInitialised = true;
    return true;
}

const char* SDL_GetCurrentAudioDriver() {
    return isInitialised ? "alsa" : nullptr;
}
