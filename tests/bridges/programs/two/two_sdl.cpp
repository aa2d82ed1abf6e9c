#include <SDL.h>

#include "TwoStreams.h"

namespace {

bool play(const char*) {
    SDL_AudioSpec desired{};
    desired.format = AUDIO_S16LSB;
    desired.channels = twostreams::kChannels;
    desired.freq = twostreams::kRate;
    desired.samples = 1024;
    const SDL_AudioDeviceID device = SDL_OpenAudioDevice(nullptr, 0, &desired, nullptr, 0);
    const std::vector<short> samples = twostreams::wholeStream();
    if (device == 0 || SDL_QueueAudio(device, samples.data(),
                                      static_cast<Uint32>(samples.size() * sizeof(short))) != 0) {
        return false;
    }
    SDL_PauseAudioDevice(device, 0);
    while (SDL_GetQueuedAudioSize(device) != 0) {
        SDL_Delay(2);
    }
    SDL_CloseAudioDevice(device);
    return true;
}

}  // namespace

int main() {
    return SDL_Init(SDL_INIT_AUDIO) == 0 ? twostreams::playTwo(play) : 1;
}
