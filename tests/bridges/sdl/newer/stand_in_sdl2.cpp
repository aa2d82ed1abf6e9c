// A made-up SDL of version 2 that plays through version 3, as far as the player calls it. A device
// is opened with a callback and plays one second when it is closed.

#include <SDL_audio.h>
#include <dlfcn.h>

#include <string>

namespace {

constexpr std::size_t kBytes = 48000 * 4;

struct Newer {
    void* library = dlopen("libSDL3.so.0", RTLD_NOW | RTLD_LOCAL);

    template <class Function>
    Function* find(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(library, name));
    }
};

const Newer& newer() {
    static const Newer found;
    return found;
}

SDL_AudioSpec opened{};

}  // namespace

extern "C" {

int SDL_Init(unsigned systems) {
    return newer().find<bool(unsigned)>("SDL_Init")(systems) ? 0 : -1;
}
const char* SDL_GetCurrentAudioDriver() {
    return newer().find<const char*()>("SDL_GetCurrentAudioDriver")();
}
SDL_AudioDeviceID SDL_OpenAudioDevice(const char* /*device*/, int /*isCapture*/,
                                      const SDL_AudioSpec* desired, SDL_AudioSpec* obtained,
                                      int /*changes*/) {
    opened = *desired;
    opened.size = kBytes;
    if (obtained != nullptr) {
        *obtained = opened;
    }
    return 2;
}
void SDL_CloseAudioDevice(SDL_AudioDeviceID /*device*/) {
    std::string samples(kBytes, '\0');
    opened.callback(opened.userdata, reinterpret_cast<Uint8*>(samples.data()),
                    static_cast<int>(samples.size()));
    void* const stream = newer().find<void*()>("SDL_OpenAudioDeviceStream")();
    newer().find<bool(void*, const void*, std::size_t)>("SDL_PutAudioStreamData")(
        stream, samples.data(), samples.size());
    newer().find<void(void*)>("SDL_DestroyAudioStream")(stream);
}
void SDL_LockAudioDevice(SDL_AudioDeviceID /*device*/) {
}
void SDL_UnlockAudioDevice(SDL_AudioDeviceID /*device*/) {
}
int SDL_Error(SDL_errorcode /*code*/) {
    return -1;
}

}  // extern "C"
