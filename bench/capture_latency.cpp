// How long a sample is on its way from the host's render callback to a listener of the mix.
#include <AudioToolbox/AudioToolbox.h>
#include <dispatch/dispatch.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Bench.h"
#include "HookedHost.h"
#include "RZReplayAudioRecorder.h"
#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZStreamCollectManager.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Blocks of the null device, 10.67 ms each.
constexpr UInt32 kBlocksBefore = 50;
constexpr UInt32 kBlocksBetween = 3;
constexpr std::size_t kImpulses = 32;
/// Above what an impulse leaves in the samples beside its peak, below any peak.
constexpr int kThreshold = 14000;

std::int64_t now() {
    return Clock::now().time_since_epoch().count();
}

/// The impulses on their way: the host's thread is the listener's too, yet nothing depends on it.
struct Journey {
    std::atomic<std::int64_t> left{0};
    std::atomic<std::size_t> arrived{0};
    std::vector<double> milliseconds = std::vector<double>(kImpulses);
    UInt32 blocks = 0;
    std::atomic<UInt64> mixedBlocks{0};
    std::atomic<UInt64> mixedFrames{0};
};

/// What a recording has shown, milliseconds.
struct Latency {
    double mean = 0.0;
    double latest = 0.0;
    double block = 0.0;  ///< of the private graph
};

class ImpulseListener : public RZReplayAudioRecorderListener<ImpulseListener> {
  public:
    explicit ImpulseListener(Journey& journey) : journey_(journey) {}
    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& /*info*/) {
        const auto* const samples = static_cast<const std::int16_t*>(pcm->mBuffers[0].mData);
        const UInt32 count = pcm->mBuffers[0].mDataByteSize / sizeof(std::int16_t);
        ++journey_.mixedBlocks;
        journey_.mixedFrames += count / 2;
        if (count == 0 || *std::max_element(samples, samples + count) < kThreshold) {
            return;
        }
        const std::int64_t left = journey_.left.exchange(0);
        const std::size_t arrived = journey_.arrived;
        if (left != 0 && arrived < kImpulses) {
            journey_.milliseconds[arrived] = static_cast<double>(now() - left) / 1e6;
            journey_.arrived = arrived + 1;
        }
    }
    [[nodiscard]] std::uint64_t getPCMDataType() { return RZPCMDataTypePre; }

  private:
    Journey& journey_;
};

OSStatus render(void* refCon, AudioUnitRenderActionFlags* /*flags*/, const AudioTimeStamp* /*ts*/,
                UInt32 /*bus*/, UInt32 frames, AudioBufferList* ioData) {
    auto& journey = *static_cast<Journey*>(refCon);
    auto* const samples = static_cast<float*>(ioData->mBuffers[0].mData);
    std::fill_n(samples, std::size_t{frames} * 2, 0.0F);
    ++journey.blocks;
    if (journey.blocks > kBlocksBefore && journey.blocks % kBlocksBetween == 0 &&
        journey.left == 0) {
        // Evenly over the block.
        const auto at = static_cast<UInt32>((2 * journey.arrived + 1) * frames / (2 * kImpulses));
        samples[std::size_t{at} * 2] = samples[std::size_t{at} * 2 + 1] = 1.0F;
        journey.left = now();
    }
    return noErr;
}

/// A host with one output unit of float stereo at 48000 Hz.
class ImpulseHost {
  public:
    explicit ImpulseHost(Journey& journey) : unit_(startStereoUnit({render, &journey})) {}
    ~ImpulseHost() {
        AudioOutputUnitStop(unit_);
        AudioUnitUninitialize(unit_);
        AudioComponentInstanceDispose(unit_);
    }
    ImpulseHost(const ImpulseHost&) = delete;
    ImpulseHost& operator=(const ImpulseHost&) = delete;

  private:
    const AudioUnit unit_;
};

void waitForRecorder() {
    dispatch_sync(RZStreamCollectManager::sharedManager().audioRecorder()->queue(), [] {});
}

/// How long the impulses of a recording took, each from another place in a block.
Latency record() {
    Journey journey;
    const auto listener = std::make_shared<ImpulseListener>(journey);
    {
        const ImpulseHost host(journey);
        RZStreamCollectManager::sharedManager().startAudioStreamCollect(listener);
        const auto deadline = Clock::now() + std::chrono::seconds(30);
        while (journey.arrived < kImpulses && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        RZStreamCollectManager::sharedManager().stopAudioStreamCollect(listener);
        waitForRecorder();
    }
    if (journey.arrived < kImpulses) {
        throw std::runtime_error("not every impulse arrived");
    }
    const auto& times = journey.milliseconds;
    constexpr double kMixRate = 44.1;  // frames per millisecond
    return {std::accumulate(times.begin(), times.end(), 0.0) / static_cast<double>(times.size()),
            *std::max_element(times.begin(), times.end()),
            static_cast<double>(journey.mixedFrames) /
                (static_cast<double>(journey.mixedBlocks) * kMixRate)};
}

void add(const char* name, const char* variant, double Latency::*figure) {
    bench::add("added latency", name, variant, [figure](benchmark::State& state) {
        double value = 0;
        for (auto _ : state) {
            value = record().*figure;
        }
        state.counters["value"] = value;
    })->Iterations(1);
}

}  // namespace

void registerBenchmarks() {
    // A device that keeps time of its own; it is chosen when the first unit is made.
    setenv("TQ_AUDIO_DEVICE", "null", 1);
    RZReplayAudioUnitCapturer::startHook();
    RZReplayAudioUnitGraphCapturer::startHook();
    const char* const mean = "impulse to listener, mean";
    const char* const latest = "impulse to listener, latest";
    add(mean, "ours", &Latency::mean);
    add(mean, "block of the mix", &Latency::block);
    add(latest, "ours", &Latency::latest);
    add(latest, "block of the mix", &Latency::block);
}
