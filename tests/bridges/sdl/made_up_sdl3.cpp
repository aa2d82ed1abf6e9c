#include "made_up_sdl3.h"

#include <cstdio>

std::uint32_t SDL_OpenAudioDevice(std::uint32_t device, const SDL3_Spec* spec) {
    std::printf("open %u: %u %d %d\n", device, spec->format, spec->channels, spec->rate);
    return 7;
}

bool SDL_PauseAudioDevice(std::uint32_t device) {
    std::printf("pause %u\n", device);
    return device == 7;
}

void SDL_CloseAudioDevice(std::uint32_t device) {
    std::printf("close %u\n", device);
}

const char* SDL_GetCurrentAudioDriver() {
    return "dummy";
}

void SDL_Quit() {
    std::printf("quit\n");
}
