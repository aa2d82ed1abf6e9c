// How long a sound is on its way out of a program and back into it, and what a block costs: the
// same program three times on one sound server whose microphone hears its speakers.
//   device_round_trip ours|cubeb|sdl IMPULSES      lines "ms=..." and one "block_ns=..."

#include <AudioToolbox/AudioToolbox.h>
#include <SDL.h>
#include <cubeb/cubeb.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/OutputUnit.h"

namespace {

constexpr int kRate = 48000;
constexpr double kBlock = 512;  ///< frames of what is called a block, whatever the server asks for
constexpr float kImpulse = 0.9F;
constexpr float kThreshold = 0.4F;
constexpr std::chrono::milliseconds kPause{70};
constexpr int kFirstBlocks = 50;  ///< not counted: caches, buffers, the thread itself

std::int64_t clockNs(clockid_t id) {
    timespec now{};
    clock_gettime(id, &now);
    return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

/// What all three do in their callbacks: play an impulse when one is wanted, look for it in what
/// comes back.
class Journey {
  public:
    void play(float* samples, std::size_t count) {
        std::fill_n(samples, count, 0.0F);
        if (isWanted_.exchange(false)) {
            samples[0] = samples[1] = kImpulse;
            left_.store(clockNs(CLOCK_MONOTONIC));
        }
        // From the end of a block to the end of the next: all that the thread does for one.
        const std::int64_t now = clockNs(CLOCK_THREAD_CPUTIME_ID);
        if (++blocks_ == kFirstBlocks) {
            began_ = now;
        }
        ended_ = now;
        frames_ += blocks_ > kFirstBlocks ? static_cast<std::int64_t>(count / 2) : 0;
    }
    void hear(const float* samples, std::size_t count) {
        if (std::any_of(samples, samples + count,
                        [](float sample) { return std::abs(sample) > kThreshold; })) {
            if (const std::int64_t left = left_.exchange(0); left != 0) {
                took_.store(clockNs(CLOCK_MONOTONIC) - left);
            }
        }
    }
    void measure(int impulses) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        for (int each = 0; each < impulses; ++each) {
            // Not in step with the blocks.
            std::this_thread::sleep_for(kPause + std::chrono::microseconds(1300 * each));
            isWanted_.store(true);
            std::int64_t took = 0;
            for (int wait = 0; wait < 2000 && took == 0; ++wait) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                took = took_.exchange(0);
            }
            if (took == 0) {
                throw std::runtime_error("an impulse did not come back");
            }
            std::printf("ms=%.3f\n", static_cast<double>(took) / 1e6);
        }
    }
    void sayCost() const {
        std::printf("frames=%lld\n", static_cast<long long>(frames_ / (blocks_ - kFirstBlocks)));
        std::printf("block_ns=%.0f\n",
                    static_cast<double>(ended_ - began_) * kBlock / static_cast<double>(frames_));
    }

  private:
    std::atomic<bool> isWanted_{false};
    std::atomic<std::int64_t> left_{0};
    std::atomic<std::int64_t> took_{0};
    std::int64_t blocks_ = 0;  // these three: on the playing thread, read when it has gone
    std::int64_t began_ = 0;
    std::int64_t ended_ = 0;
    std::int64_t frames_ = 0;
};

Journey journey;

void must(bool isDone, const char* what) {
    if (!isDone) {
        throw std::runtime_error(std::string(what) + " failed");
    }
}

void runOurs(int impulses) {
    static AudioUnit unit = nullptr;
    const auto play = [](void*, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                         UInt32 frames, AudioBufferList* list) -> OSStatus {
        journey.play(static_cast<float*>(list->mBuffers[0].mData), 2 * frames);
        return 0;
    };
    const auto hear = [](void*, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time,
                         UInt32 bus, UInt32 frames, AudioBufferList*) -> OSStatus {
        static std::vector<float> samples(2 * 8192);
        const OSStatus status =
            tqtest::fetchHeard(unit, flags, time, bus, frames, 2, samples.data());
        journey.hear(samples.data(), 2 * frames);
        return status;
    };
    unit = tqtest::makeOutputUnit(tqtest::floatFormat(kRate, 2), {.play = play, .hear = hear});
    must(unit != nullptr && AudioOutputUnitStart(unit) == 0, "the start of a unit");
    journey.measure(impulses);
    AudioOutputUnitStop(unit);
    journey.sayCost();
}

void runCubeb(int impulses) {
    cubeb* context = nullptr;
    must(cubeb_init(&context, "round trip", "pulse") == CUBEB_OK, "cubeb");
    cubeb_stream_params params{CUBEB_SAMPLE_FLOAT32NE, kRate, 2, CUBEB_LAYOUT_UNDEFINED,
                               CUBEB_STREAM_PREF_NONE};
    uint32_t latency = 0;
    cubeb_get_min_latency(context, &params, &latency);
    cubeb_stream* stream = nullptr;
    const auto onBlock = [](cubeb_stream*, void*, const void* heard, void* played,
                            long frames) -> long {
        journey.hear(static_cast<const float*>(heard), 2 * static_cast<std::size_t>(frames));
        journey.play(static_cast<float*>(played), 2 * static_cast<std::size_t>(frames));
        return frames;
    };
    must(cubeb_stream_init(
             context, &stream, "round trip", nullptr, &params, nullptr, &params, latency, onBlock,
             [](cubeb_stream*, void*, cubeb_state) {}, nullptr) == CUBEB_OK &&
             cubeb_stream_start(stream) == CUBEB_OK,
         "cubeb's stream");
    journey.measure(impulses);
    cubeb_stream_stop(stream);
    journey.sayCost();
    cubeb_stream_destroy(stream);
    cubeb_destroy(context);
}

void runSdl(int impulses) {
    SDL_setenv("SDL_AUDIODRIVER", "pulseaudio", 1);
    must(SDL_Init(SDL_INIT_AUDIO) == 0, "SDL");
    SDL_AudioSpec wanted{};
    wanted.freq = kRate;
    wanted.format = AUDIO_F32SYS;
    wanted.channels = 2;
    wanted.samples = 512;
    SDL_AudioSpec got{};
    wanted.callback = [](void*, Uint8* samples, int bytes) {
        journey.play(reinterpret_cast<float*>(samples), static_cast<std::size_t>(bytes) / 4);
    };
    const SDL_AudioDeviceID speakers = SDL_OpenAudioDevice(nullptr, 0, &wanted, &got, 0);
    wanted.callback = [](void*, Uint8* samples, int bytes) {
        journey.hear(reinterpret_cast<float*>(samples), static_cast<std::size_t>(bytes) / 4);
    };
    const char* const source = SDL_GetAudioDeviceName(0, 1);
    const SDL_AudioDeviceID microphone = SDL_OpenAudioDevice(
        source == nullptr ? std::getenv("TQ_BENCH_SOURCE") : nullptr, 1, &wanted, &got, 0);
    must(speakers != 0 && microphone != 0, "SDL's devices");
    SDL_PauseAudioDevice(microphone, 0);
    SDL_PauseAudioDevice(speakers, 0);
    journey.measure(impulses);
    SDL_PauseAudioDevice(speakers, 1);
    journey.sayCost();
    SDL_CloseAudioDevice(microphone);
    SDL_CloseAudioDevice(speakers);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        must(argc == 3, "reading the arguments");
        const std::string kind = argv[1];
        const int impulses = std::atoi(argv[2]);
        kind == "ours"    ? runOurs(impulses)
        : kind == "cubeb" ? runCubeb(impulses)
                          : runSdl(impulses);
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "device_round_trip: %s\n", fault.what());
        return 1;
    }
    return 0;
}
