// Plays a file of 16-bit stereo through a made-up SDL of version 3: PROGRAM FILE

#include <fstream>
#include <iterator>
#include <string>

#include "newer_sdl.h"

int main(int count, char** arguments) {
    if (count < 2 || !SDL_Init(0) || std::string(SDL_GetCurrentAudioDriver()) != "alsa") {
        return 2;
    }
    std::ifstream file(arguments[1], std::ios::binary);
    const std::string samples((std::istreambuf_iterator<char>(file)), {});
    SDL_AudioStream* const stream = SDL_OpenAudioDeviceStream();
    if (stream == nullptr || !SDL_PutAudioStreamData(stream, samples.data(), samples.size())) {
        return 1;
    }
    SDL_DestroyAudioStream(stream);
    SDL_CloseAudioDevice(1);
    return 0;
}
