// Plays a WAV file of 16-bit stereo frames at 48 kHz through version 1.2 of SDL: sdl12_player FILE.
// No headers of that version are needed: what is used of it stands below.

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace {

constexpr std::uint32_t kInitAudio = 0x10;
constexpr std::uint16_t kS16 = 0x8010;
constexpr std::streamoff kHeader = 44;  // in front of the samples

struct AudioSpec {
    int freq;
    std::uint16_t format;
    std::uint8_t channels;
    std::uint8_t silence;
    std::uint16_t samples;
    std::uint16_t padding;
    std::uint32_t size;
    void (*callback)(void*, std::uint8_t*, int);
    void* userdata;
};

struct Sound {
    std::string bytes;
    std::atomic<std::size_t> played{0};
};

void fill(void* context, std::uint8_t* buffer, int length) {
    auto& sound = *static_cast<Sound*>(context);
    const auto wanted = static_cast<std::size_t>(length);
    const std::size_t from = sound.played;
    const std::size_t part = std::min(wanted, sound.bytes.size() - from);
    std::memcpy(buffer, sound.bytes.data() + from, part);
    std::memset(buffer + part, 0, wanted - part);
    sound.played = from + part;
}

}  // namespace

int main(int count, char** arguments) {
    void* const sdl = dlopen("libSDL-1.2.so.0", RTLD_NOW);
    if (count != 2 || sdl == nullptr) {
        return 2;
    }
    const auto init = reinterpret_cast<int (*)(std::uint32_t)>(dlsym(sdl, "SDL_Init"));
    const auto open =
        reinterpret_cast<int (*)(AudioSpec*, AudioSpec*)>(dlsym(sdl, "SDL_OpenAudio"));
    const auto pause = reinterpret_cast<void (*)(int)>(dlsym(sdl, "SDL_PauseAudio"));
    const auto close = reinterpret_cast<void (*)()>(dlsym(sdl, "SDL_CloseAudio"));
    const auto quit = reinterpret_cast<void (*)()>(dlsym(sdl, "SDL_Quit"));
    std::ifstream file(arguments[1], std::ios::binary);
    file.seekg(kHeader);
    Sound sound;
    sound.bytes.assign(std::istreambuf_iterator<char>(file), {});
    AudioSpec spec{.freq = 48000,
                   .format = kS16,
                   .channels = 2,
                   .silence = 0,
                   .samples = 2048,
                   .padding = 0,
                   .size = 0,
                   .callback = &fill,
                   .userdata = &sound};
    if (init(kInitAudio) != 0 || open(&spec, nullptr) != 0) {
        return 3;
    }
    pause(0);
    while (sound.played < sound.bytes.size()) {
        std::this_thread::sleep_for(std::chrono::milliseconds{2});
    }
    // What is with the driver by now is played.
    std::this_thread::sleep_for(std::chrono::milliseconds{150});
    close();
    quit();
    return 0;
}
