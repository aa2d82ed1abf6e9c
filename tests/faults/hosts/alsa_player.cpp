// A program that knows ALSA and nothing else: writes fifty pieces of 10 ms to ALSA's "null" device
// and says in "name=value" lines what it sees. Told "kill", it dies in the middle, between two
// writes.

#include <alsa/asoundlib.h>
#include <dlfcn.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <thread>
#include <vector>

#include "HookState.h"

int main(int argc, char** argv) {
    using namespace std::chrono_literals;
    constexpr int kPieces = 50;
    constexpr unsigned kChannels = 2;
    constexpr snd_pcm_uframes_t kFrames = 480;
    const bool dies = argc > 1 && std::string_view(argv[1]) == "kill";
    std::printf("hooks=%s\n", hookState());
    std::fflush(stdout);
    snd_pcm_t* pcm = nullptr;
    if (snd_pcm_open(&pcm, "null", SND_PCM_STREAM_PLAYBACK, 0) < 0 ||
        snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, kChannels,
                           48000, 0, 200000) < 0) {
        return 3;
    }
    const std::vector<std::int16_t> piece(kFrames * kChannels, 8192);
    int written = 0;
    for (int i = 0; i < kPieces; ++i) {
        written += snd_pcm_writei(pcm, piece.data(), kFrames) == kFrames ? 1 : 0;
        std::this_thread::sleep_for(10ms);
        if (dies && i == kPieces / 2) {
            std::printf("dying=%d\n", written);
            std::fflush(stdout);
            std::raise(SIGKILL);
        }
    }
    const bool isClosed = snd_pcm_drain(pcm) == 0 && snd_pcm_close(pcm) == 0;
    std::printf("played=%d\n", isClosed ? written : -1);
    return 0;
}
