// Plays a file of 16-bit stereo frames at 48 kHz on many streams of the ALSA device "null":
// many_streams together COUNT FILE (all of it on every stream at once), or many_streams after COUNT
// FILE SHORT (the short one COUNT times, one after the other, over the music of FILE). Each goes at
// the speed at which a device would play.

#include <alsa/asoundlib.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kFrameBytes = 4;
constexpr unsigned kRate = 48000;
constexpr std::size_t kPiece = 960;

std::string contentOf(const char* file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

class Player {
  public:
    Player() {
        if (snd_pcm_open(&pcm_, "null", SND_PCM_STREAM_PLAYBACK, 0) < 0 ||
            snd_pcm_set_params(pcm_, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 2, kRate,
                               0, 200000) < 0) {
            std::exit(3);
        }
    }
    ~Player() {
        snd_pcm_drain(pcm_);
        snd_pcm_close(pcm_);
    }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    void play(const std::string& sound, std::size_t piece) {
        // Ahead of what is heard, as programs are.
        constexpr std::chrono::milliseconds kAhead{400};
        auto next = Clock::now() - kAhead;
        for (std::size_t at = 0; at < sound.size(); at += piece * kFrameBytes) {
            const std::size_t frames = std::min(piece, (sound.size() - at) / kFrameBytes);
            if (snd_pcm_writei(pcm_, sound.data() + at, frames) !=
                static_cast<snd_pcm_sframes_t>(frames)) {
                std::exit(4);
            }
            next += std::chrono::microseconds(frames * 1'000'000 / kRate);
            std::this_thread::sleep_until(next);
        }
        std::this_thread::sleep_until(next + kAhead);
    }

  private:
    snd_pcm_t* pcm_ = nullptr;
};

}  // namespace

int main(int count, char** arguments) {
    if (count < 4) {
        return 2;
    }
    const std::string_view kind = arguments[1];
    const int streams = std::atoi(arguments[2]);
    const std::string sound = contentOf(arguments[3]);
    if (kind == "together") {
        std::vector<std::thread> threads;
        for (int i = 0; i < streams; ++i) {
            threads.emplace_back([&] { Player().play(sound, kPiece); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return 0;
    }
    const std::string shot = contentOf(arguments[4]);
    std::thread music([&] { Player().play(sound, kPiece); });
    for (int i = 0; i < streams; ++i) {
        Player().play(shot, shot.size() / kFrameBytes);
    }
    music.join();
    return 0;
}
