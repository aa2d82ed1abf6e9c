// A program of version 3: says what its calls answer.

#include <cstdio>
#include <memory>

#include "made_up_sdl3.h"

int main() {
    // Far up in memory, so that a pointer that is cut is another one.
    const auto spec = std::make_unique<SDL3_Spec>(SDL3_Spec{0x8010, 2, 48000});
    const std::uint32_t device = SDL_OpenAudioDevice(0xFFFFFFFFU, spec.get());
    std::printf("opened %u\n", device);
    std::printf("paused %d\n", SDL_PauseAudioDevice(device) ? 1 : 0);
    std::printf("paused %d\n", SDL_PauseAudioDevice(3) ? 1 : 0);
    SDL_CloseAudioDevice(device);
    SDL_Quit();
    return 0;
}
