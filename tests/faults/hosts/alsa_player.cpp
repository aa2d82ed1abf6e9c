// A program that knows ALSA and nothing else: writes fifty pieces of 10 ms to ALSA's "null" device
// and says in "name=value" lines what it sees. Told "kill", it dies in the middle, between two
// writes. Told "fork", it forks five times while it plays, and each child plays the same on a
// stream of its own. Told "thread", its main thread ends at once while another plays.

#include <alsa/asoundlib.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <vector>

#include "HookState.h"

namespace {

using namespace std::chrono_literals;

constexpr int kPieces = 50;
constexpr unsigned kChannels = 2;
constexpr snd_pcm_uframes_t kFrames = 480;

/// Calls `between` behind each piece. The number of pieces that ALSA took whole, -1 for a failure.
template <class Between>
int play(const Between& between) {
    snd_pcm_t* pcm = nullptr;
    if (snd_pcm_open(&pcm, "null", SND_PCM_STREAM_PLAYBACK, 0) < 0 ||
        snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, kChannels,
                           48000, 0, 200000) < 0) {
        return -1;
    }
    const std::vector<std::int16_t> piece(kFrames * kChannels, 8192);
    int written = 0;
    for (int i = 0; i < kPieces; ++i) {
        written += snd_pcm_writei(pcm, piece.data(), kFrames) == kFrames ? 1 : 0;
        std::this_thread::sleep_for(10ms);
        between(i);
    }
    return snd_pcm_drain(pcm) == 0 && snd_pcm_close(pcm) == 0 ? written : -1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view what = argc > 1 ? argv[1] : "play";
    std::printf("hooks=%s\n", hookState());
    std::fflush(stdout);
    if (what == "thread") {
        const char* const name = argc > 2 ? argv[2] : "player";
        std::thread([name] {
            pthread_setname_np(pthread_self(), name);
            std::printf("played=%d\n", play([](int) {}));
        }).detach();
        pthread_exit(nullptr);
    }
    std::vector<pid_t> children;
    const int played = play([&](int i) {
        if (what == "kill" && i == kPieces / 2) {
            std::printf("dying=%d\n", i);
            std::fflush(stdout);
            std::raise(SIGKILL);
        }
        if (what == "fork" && i % 10 == 5) {
            children.push_back(fork());
            if (children.back() == 0) {
                std::exit(play([](int) {}) == kPieces ? 0 : 1);
            }
        }
    });
    int ended = 0;
    for (const pid_t child : children) {
        int status = -1;
        ended += waitpid(child, &status, 0) == child && status == 0 ? 1 : 0;
    }
    std::printf("ended=%d\nplayed=%d\n", ended, played);
    return 0;
}
