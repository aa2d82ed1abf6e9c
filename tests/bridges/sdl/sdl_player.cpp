// Plays a file of samples through SDL, as programs do it: sdl_player ROAD FORMAT CHANNELS RATE FILE
//
//   callback       SDL_OpenAudioDevice with a callback
//   queue          SDL_OpenAudioDevice without one, all of the file queued at once
//   pieces         the same in pieces of odd sizes, as they are needed
//   legacy         SDL_OpenAudio with a callback
//   legacyQueue    SDL_OpenAudio without one
//   pause          as callback, paused for a while in the middle
//   clear          as pieces; one second of noise is queued in pause and cleared before
//   quit           as callback, ended with SDL_Quit alone
//
// FORMAT is SDL's number of the sample format. Says what SDL told it, one line each.

#include <SDL.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace {

struct Sound {
    std::string bytes;
    std::atomic<std::size_t> played{0};
    unsigned char silence = 0;
};

void fill(void* context, Uint8* buffer, int length) {
    auto& sound = *static_cast<Sound*>(context);
    const auto wanted = static_cast<std::size_t>(length);
    const std::size_t from = sound.played;
    const std::size_t part = std::min(wanted, sound.bytes.size() - from);
    std::memcpy(buffer, sound.bytes.data() + from, part);
    std::memset(buffer + part, sound.silence, wanted - part);
    sound.played = from + part;
}

bool fails(const char* what) {
    std::fprintf(stderr, "%s: %s\n", what, SDL_GetError());
    return true;
}

void waitFor(const Sound& sound, std::size_t bytes) {
    while (sound.played < bytes) {
        SDL_Delay(2);
    }
}

void queue(SDL_AudioDeviceID device, const Sound& sound, std::size_t piece, std::size_t frame) {
    for (std::size_t at = 0; at < sound.bytes.size();) {
        const std::size_t part = std::min(piece * frame, sound.bytes.size() - at);
        if (SDL_QueueAudio(device, sound.bytes.data() + at, static_cast<Uint32>(part)) != 0) {
            fails("SDL_QueueAudio");
        }
        at += part;
        piece = piece * 7 % 3001 + 1;
        while (SDL_GetQueuedAudioSize(device) > 65536) {
            SDL_Delay(2);
        }
    }
}

void waitForQueue(SDL_AudioDeviceID device) {
    while (SDL_GetQueuedAudioSize(device) != 0) {
        SDL_Delay(2);
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 6 || SDL_Init(SDL_INIT_AUDIO) != 0) {
        return fails("SDL_Init") ? 2 : 0;
    }
    const std::string_view road = arguments[1];
    const bool isLegacy = road.starts_with("legacy");
    const bool isQueue =
        road == "queue" || road == "pieces" || road == "clear" || road == "legacyQueue";
    Sound sound;
    std::ifstream file(arguments[5], std::ios::binary);
    sound.bytes.assign(std::istreambuf_iterator<char>(file), {});

    SDL_AudioSpec desired{};
    desired.format = static_cast<SDL_AudioFormat>(std::stoi(arguments[2]));
    desired.channels = static_cast<Uint8>(std::stoi(arguments[3]));
    desired.freq = std::stoi(arguments[4]);
    desired.samples = 2048;
    desired.callback = isQueue ? nullptr : &fill;
    desired.userdata = &sound;
    SDL_AudioSpec obtained{};
    const SDL_AudioDeviceID device = isLegacy
                                         ? (SDL_OpenAudio(&desired, nullptr) == 0 ? 1 : 0)
                                         : SDL_OpenAudioDevice(nullptr, 0, &desired, &obtained, 0);
    if (device == 0) {
        return fails("open") ? 2 : 0;
    }
    const SDL_AudioSpec& told = isLegacy ? desired : obtained;
    sound.silence = told.silence;
    std::printf("device %u freq %d format %d channels %d samples %d size %u silence %d own %d %d\n",
                device, told.freq, told.format, told.channels, told.samples, told.size,
                told.silence, told.callback == (isQueue ? nullptr : &fill),
                told.userdata == &sound);
    const std::size_t frame = desired.channels * (SDL_AUDIO_BITSIZE(desired.format) / 8U);
    const std::string noise(static_cast<std::size_t>(desired.freq) * frame, '\x55');
    if (road == "clear") {
        (void)SDL_QueueAudio(device, noise.data(), static_cast<Uint32>(noise.size()));
        std::printf("queued %u\n", SDL_GetQueuedAudioSize(device));
        SDL_ClearQueuedAudio(device);
        std::printf("queued %u\n", SDL_GetQueuedAudioSize(device));
    }
    isLegacy ? SDL_PauseAudio(0) : SDL_PauseAudioDevice(device, 0);
    if (road == "queue" || road == "legacyQueue") {
        queue(device, sound, sound.bytes.size(), frame);
        waitForQueue(device);
    } else if (isQueue) {
        queue(device, sound, 1, frame);
        waitForQueue(device);
    } else if (road == "pause") {
        waitFor(sound, sound.bytes.size() / 2);
        SDL_PauseAudioDevice(device, 1);
        SDL_Delay(300);
        SDL_PauseAudioDevice(device, 0);
    }
    if (!isQueue) {
        waitFor(sound, sound.bytes.size());
    }
    // What is with the driver by now is played.
    SDL_Delay(150);
    if (isLegacy) {
        SDL_CloseAudio();
    } else if (road != "quit") {
        SDL_CloseAudioDevice(device);
    }
    SDL_Quit();
    return 0;
}
