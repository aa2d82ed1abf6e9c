#pragma once

#include <cstdint>

// Functions as version 3 has them: two bear names of version 2 and take other arguments.

extern "C" {

struct SDL3_Spec {
    std::uint32_t format;
    int channels;
    int rate;
};

std::uint32_t SDL_OpenAudioDevice(std::uint32_t device, const SDL3_Spec* spec);
bool SDL_PauseAudioDevice(std::uint32_t device);
void SDL_CloseAudioDevice(std::uint32_t device);
const char* SDL_GetCurrentAudioDriver();
void SDL_Quit();
}
