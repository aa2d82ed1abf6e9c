// Plays a file of 16-bit stereo through version 2 of SDL: PROGRAM FILE

#include <SDL_audio.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int SDL_Init(unsigned systems);

namespace {

std::string samples;

void fill(void* /*user*/, Uint8* block, int bytes) {
    std::copy_n(samples.begin(), std::min(samples.size(), static_cast<std::size_t>(bytes)), block);
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 2 || SDL_Init(0) != 0) {
        return 2;
    }
    std::ifstream file(arguments[1], std::ios::binary);
    samples.assign(std::istreambuf_iterator<char>(file), {});
    SDL_AudioSpec wanted{};
    wanted.freq = 48000;
    wanted.format = AUDIO_S16SYS;
    wanted.channels = 2;
    wanted.samples = 4096;
    wanted.callback = fill;
    const SDL_AudioDeviceID device = SDL_OpenAudioDevice(nullptr, 0, &wanted, nullptr, 0);
    if (device == 0) {
        return 1;
    }
    SDL_CloseAudioDevice(device);
    return 0;
}
