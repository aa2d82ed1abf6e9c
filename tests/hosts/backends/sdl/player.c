#include <AudioUnit/AudioUnit.h>

#include "SDL_audio.h"
#include "SDL_error.h"
#include "SDL_mutex.h"

#include "SDL_coreaudio.h"

#include <stdlib.h>
#include <string.h>

#include "Player.h"

extern AudioBootStrap COREAUDIO_bootstrap;

void SDL_SetError(const char* format, ...) {
    playerFailed(format);
}
void SDL_Error(SDL_errorcode code) {
    (void)code;
    playerFailed("SDL");
}
int SDL_mutexP(SDL_mutex* mutex) {
    (void)mutex;
    return 0;
}
int SDL_mutexV(SDL_mutex* mutex) {
    (void)mutex;
    return 0;
}
void SDL_CalculateAudioSpec(SDL_AudioSpec* spec) {
    spec->silence = 0;
    spec->size = (Uint32)spec->samples * spec->channels * 2;
}

static void fill(void* userdata, Uint8* stream, int bytes) {
    (void)userdata;
    nextFrames((int16_t*)stream, (unsigned)bytes / 4);
}

void play(void) {
    SDL_AudioDevice* const device = COREAUDIO_bootstrap.create(0);
    device->spec.freq = kPlayerRate;
    device->spec.format = AUDIO_S16SYS;
    device->spec.channels = kPlayerChannels;
    device->spec.samples = 512;
    device->spec.callback = fill;
    device->enabled = 1;
    if (device->OpenAudio(device, &device->spec) != 1) {
        playerFailed("open");
    }
    for (int i = 0; i < kPlayerSlices; ++i) {
        pumpSlice();
    }
    device->CloseAudio(device);
    device->free(device);
}
