#include <SDL.h>

#include <algorithm>

#include "bridges/sdl/FakeSdl.h"

// What SDL exports, as far as the bridge and its tests call it.

namespace {

FakeSdl::Device& device(SDL_AudioDeviceID id) {
    return FakeSdl::shared().devices.at(id);
}

void describe(SDL_AudioSpec& spec) {
    spec.silence = spec.format == AUDIO_U8 ? 0x80 : 0;
    spec.size = SDL_AUDIO_BITSIZE(spec.format) / 8U * spec.samples * spec.channels;
}

SDL_AudioDeviceID open(SDL_AudioDeviceID id, const SDL_AudioSpec& desired, bool isCapture,
                       bool mayChange) {
    FakeSdl& sdl = FakeSdl::shared();
    if (sdl.fails || id == sdl.devices.size() || device(id).isOpen) {
        return 0;
    }
    FakeSdl::Device& opened = device(id);
    opened = {};
    opened.isOpen = true;
    opened.isCapture = isCapture;
    opened.spec = mayChange && sdl.hasInstead ? *sdl.hasInstead : desired;
    opened.spec.callback = desired.callback;
    opened.spec.userdata = desired.userdata;
    // What the program leaves open is SDL's choice.
    opened.spec.freq = opened.spec.freq == 0 ? 22050 : opened.spec.freq;
    opened.spec.channels = opened.spec.channels == 0 ? 2 : opened.spec.channels;
    opened.spec.format = opened.spec.format == 0 ? AUDIO_S16SYS : opened.spec.format;
    describe(opened.spec);
    return id;
}

void close(SDL_AudioDeviceID id) {
    device(id).isOpen = false;
}

void end() {
    FakeSdl& sdl = FakeSdl::shared();
    sdl.driver.clear();
    for (FakeSdl::Device& each : sdl.devices) {
        each.isOpen = false;
    }
}

}  // namespace

FakeSdl& FakeSdl::shared() {
    static FakeSdl instance;
    return instance;
}

std::string FakeSdl::play(SDL_AudioDeviceID id) {
    Device& one = device(id);
    std::string buffer(one.spec.size, static_cast<char>(one.spec.silence));
    if (one.isOpen && !one.isPaused) {
        SDL_LockAudioDevice(id);
        if (one.spec.callback != nullptr) {
            one.spec.callback(one.spec.userdata, reinterpret_cast<Uint8*>(buffer.data()),
                              static_cast<int>(buffer.size()));
        } else {
            const std::size_t part = std::min(buffer.size(), one.queue.size());
            buffer.replace(0, part, one.queue, 0, part);
            one.queue.erase(0, part);
        }
        SDL_UnlockAudioDevice(id);
    }
    return buffer;
}

extern "C" {

const char* SDL_GetCurrentAudioDriver() {
    const std::string& driver = FakeSdl::shared().driver;
    return driver.empty() ? nullptr : driver.c_str();
}
const char* SDL_GetHint(const char* name) {
    const std::string& hint = FakeSdl::shared().streamName;
    return std::string(name) != SDL_HINT_AUDIO_DEVICE_STREAM_NAME || hint.empty() ? nullptr
                                                                                  : hint.c_str();
}
const char* SDL_GetError() {
    return "no such thing";
}
int SDL_Error(SDL_errorcode /*code*/) {
    return -1;
}
int SDL_AudioInit(const char* name) {
    end();
    FakeSdl::shared().driver = name;
    return 0;
}
void SDL_AudioQuit() {
    end();
}
void SDL_QuitSubSystem(Uint32 flags) {
    if ((flags & SDL_INIT_AUDIO) != 0) {
        end();
    }
}
void SDL_Quit() {
    end();
}
int SDL_OpenAudio(SDL_AudioSpec* desired, SDL_AudioSpec* obtained) {
    if (open(1, *desired, false, obtained != nullptr) == 0) {
        return -1;
    }
    if (obtained != nullptr) {
        *obtained = device(1).spec;
    } else {
        desired->size = device(1).spec.size;
        desired->silence = device(1).spec.silence;
    }
    return 0;
}
SDL_AudioDeviceID SDL_OpenAudioDevice(const char* /*name*/, int isCapture,
                                      const SDL_AudioSpec* desired, SDL_AudioSpec* obtained,
                                      int changes) {
    if (desired == nullptr) {
        return 0;
    }
    const FakeSdl& sdl = FakeSdl::shared();
    SDL_AudioDeviceID id = 2;
    while (id < sdl.devices.size() && sdl.devices.at(id).isOpen) {
        ++id;
    }
    if (open(id, *desired, isCapture != 0, changes != 0) == 0) {
        return 0;
    }
    if (obtained != nullptr) {
        *obtained = device(id).spec;
    }
    return id;
}
void SDL_PauseAudio(int isPaused) {
    device(1).isPaused = isPaused != 0;
}
void SDL_PauseAudioDevice(SDL_AudioDeviceID id, int isPaused) {
    device(id).isPaused = isPaused != 0;
}
int SDL_QueueAudio(SDL_AudioDeviceID id, const void* data, Uint32 bytes) {
    if (device(id).spec.callback != nullptr) {
        return -1;
    }
    device(id).queue.append(static_cast<const char*>(data), bytes);
    return 0;
}
Uint32 SDL_GetQueuedAudioSize(SDL_AudioDeviceID id) {
    return static_cast<Uint32>(device(id).queue.size());
}
void SDL_ClearQueuedAudio(SDL_AudioDeviceID id) {
    device(id).queue.clear();
}
void SDL_LockAudioDevice(SDL_AudioDeviceID id) {
    ++device(id).locks;
}
void SDL_UnlockAudioDevice(SDL_AudioDeviceID id) {
    --device(id).locks;
}
void SDL_CloseAudioDevice(SDL_AudioDeviceID id) {
    close(id);
}
void SDL_CloseAudio() {
    close(1);
}

}  // extern "C"
