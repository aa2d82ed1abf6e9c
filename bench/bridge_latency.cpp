// How long a frame that a program writes to a native stream is on its way to a listener of the
// track, and what a stream takes of memory.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Bench.h"
#include "HookedHost.h"
#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "TrackListening.h"
#include "bridges/core/NativeStream.h"

namespace {

using tq::bridges::NativeFormat;
using tq::bridges::NativeSample;
using tq::bridges::NativeStream;
using Clock = std::chrono::steady_clock;

const NativeFormat kFormat{NativeSample::kS16, 2, 48000};
constexpr std::size_t kPiece = 480;
constexpr auto kPieceTime = std::chrono::milliseconds(10);
constexpr std::size_t kImpulses = 32;
constexpr int kPiecesBefore = 100;
constexpr int kPiecesBetween = 13;

/// What a recording has shown, milliseconds.
struct Latency {
    double mean = 0.0;
    double latest = 0.0;
    double bound = 0.0;  ///< margin and two blocks
};

/// A listener of tracks, and the stream that writes impulses.
class Journey {
  public:
    Journey() : listening_(this, hear) { NativeStream::open(this, kFormat, "bench", ""); }
    ~Journey() { NativeStream::close(this); }
    Journey(const Journey&) = delete;
    Journey& operator=(const Journey&) = delete;

    Latency run() {
        std::vector<std::int16_t> samples(kPiece * 2);
        Latency latency;
        auto next = Clock::now();
        for (int piece = 0; times_.size() < kImpulses && piece < 5000; ++piece) {
            std::fill(samples.begin(), samples.end(), std::int16_t{16});
            const bool sounds = piece > kPiecesBefore && piece % kPiecesBetween == 0;
            if (sounds) {
                samples.back() = 32767;
            }
            std::this_thread::sleep_until(next);
            next += kPieceTime;
            const NativeStream::Use stream(this);
            (void)stream->prepare(samples.data(), kPiece, NativeStream::Memory::kConstant);
            stream->accepted(kPiece);
            if (sounds) {
                left_ = Clock::now().time_since_epoch().count();
            }
            latency.bound = static_cast<double>(stream->behind()) / (kFormat.sampleRate / 1000);
            if (const std::int64_t took = took_.exchange(0); took != 0) {
                times_.push_back(static_cast<double>(took) / 1e6);
            }
        }
        if (times_.size() < kImpulses) {
            throw std::runtime_error("not every impulse arrived");
        }
        latency.mean =
            std::accumulate(times_.begin(), times_.end(), 0.0) / static_cast<double>(times_.size());
        latency.latest = *std::max_element(times_.begin(), times_.end());
        return latency;
    }

  private:
    static void hear(void* context, const tq_block* block) {
        auto& self = *static_cast<Journey*>(context);
        const auto& buffer = block->buffers[0];
        if (buffer.data == nullptr) {
            return;
        }
        std::vector<std::int16_t> samples(buffer.bytes / sizeof(std::int16_t));
        std::memcpy(samples.data(), buffer.data, samples.size() * sizeof(std::int16_t));
        if (std::find(samples.begin(), samples.end(), 32767) != samples.end()) {
            if (const std::int64_t left = self.left_.exchange(0); left != 0) {
                self.took_ = Clock::now().time_since_epoch().count() - left;
            }
        }
    }

    std::atomic<std::int64_t> left_{0};
    std::atomic<std::int64_t> took_{0};
    std::vector<double> times_;
    const TrackListening listening_;
};

void add(const char* name, const char* variant, double Latency::*figure) {
    bench::add("bridge", name, variant, [figure](benchmark::State& state) {
        double value = 0;
        for (auto _ : state) {
            value = Journey().run().*figure;
        }
        state.counters["value"] = value;
    })->Iterations(1);
}

/// Resident, KiB.
double residentMemory() {
    std::ifstream file("/proc/self/statm");
    long pages = 0;
    file >> pages >> pages;
    return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

void memory(benchmark::State& state) {
    constexpr std::size_t kStreams = 6;
    const std::vector<std::int16_t> samples(kPiece * 2, 16);
    for (auto _ : state) {
        const Journey first;
        const double before = residentMemory();
        int keys[kStreams] = {};
        for (int& key : keys) {
            NativeStream::open(&key, kFormat, "bench", "");
        }
        // As long as a margin is not enough: the rings are to be turned once.
        for (int piece = 0; piece < 200; ++piece) {
            for (int& key : keys) {
                const NativeStream::Use stream(&key);
                (void)stream->prepare(samples.data(), kPiece, NativeStream::Memory::kConstant);
                stream->accepted(kPiece);
            }
            std::this_thread::sleep_for(kPieceTime);
        }
        state.counters["value"] = (residentMemory() - before) / kStreams;
        for (int& key : keys) {
            NativeStream::close(&key);
        }
    }
}

}  // namespace

void registerBenchmarks() {
    // A device that keeps time of its own; it is chosen when the first unit is made.
    setenv("TQ_AUDIO_DEVICE", "null", 1);
    RZReplayAudioUnitCapturer::startHook();
    RZReplayAudioUnitGraphCapturer::startHook();
    const char* const mean = "frame written to listener, mean";
    const char* const latest = "frame written to listener, latest";
    add(mean, "ours", &Latency::mean);
    add(mean, "margin and 2 blocks", &Latency::bound);
    add(latest, "ours", &Latency::latest);
    add(latest, "margin and 2 blocks", &Latency::bound);
    bench::add("bridge", "memory of a stream, KiB", "ours", memory)->Iterations(1);
}
