#include <portaudio.h>

#include "Player.h"

static int fill(const void* input, void* output, unsigned long frames,
                const PaStreamCallbackTimeInfo* time, PaStreamCallbackFlags flags, void* data) {
    (void)input, (void)time, (void)flags, (void)data;
    nextFloatFrames(output, (unsigned)frames);
    return paContinue;
}

static void check(PaError error) {
    if (error != paNoError) {
        playerFailed(Pa_GetErrorText(error));
    }
}

void play(void) {
    PaStream* stream = NULL;
    check(Pa_Initialize());
    check(Pa_OpenDefaultStream(&stream, 0, kPlayerChannels, paFloat32, kPlayerRate,
                               paFramesPerBufferUnspecified, fill, NULL));
    check(Pa_StartStream(stream));
    for (int i = 0; i < kPlayerSlices; ++i) {
        pumpSlice();
    }
    check(Pa_AbortStream(stream));
    check(Pa_CloseStream(stream));
    check(Pa_Terminate());
}
