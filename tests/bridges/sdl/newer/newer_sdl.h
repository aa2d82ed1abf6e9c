#pragma once

#include <cstddef>

// A made-up SDL of version 3, as far as this program calls it: it has its streams, functions that
// bear names of version 2, and plays through an ALSA that it loads itself.

extern "C" {

struct SDL_AudioStream;

bool SDL_Init(unsigned systems);
/// Opens the default device: 16 bits, stereo, 48000 Hz.
SDL_AudioStream* SDL_OpenAudioDeviceStream();
bool SDL_PutAudioStreamData(SDL_AudioStream* stream, const void* samples, std::size_t bytes);
/// Returns when all has been played.
void SDL_DestroyAudioStream(SDL_AudioStream* stream);
void SDL_CloseAudioDevice(unsigned device);
const char* SDL_GetCurrentAudioDriver();
}
