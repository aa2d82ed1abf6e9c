// Ducking and compression of one stereo block, as the host's render thread does it.
#include <volume_controller.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <type_traits>

#include "Bench.h"
#include "aligned.h"
#include "gain_peers.h"
#include "hand_loops.h"

namespace {

using korva_audio_utils::VolumeController;
using korva_audio_utils::VolumeControllerFormat;

constexpr const char* kArea = "gain";
constexpr std::size_t kFrames = 512;
constexpr std::size_t kChannels = 2;
constexpr int kRate = 48000;

/// A block of a sine and the block it is processed into, at places whose addresses do not look
/// alike to the processor.
template <typename Sample>
class Blocks {
  public:
    Blocks() {
        const float scale = std::is_same_v<Sample, float> ? 0.89F : 0.89F * 32767.0F;
        for (std::size_t i = 0; i < kSamples; ++i) {
            memory_[i] = static_cast<Sample>(scale * std::sin(0.13F * static_cast<float>(i)));
        }
    }
    void process(VolumeController& controller) {
        constexpr auto kFormat = std::is_same_v<Sample, float> ? VolumeControllerFormat::kFloat32
                                                               : VolumeControllerFormat::kInt16;
        controller.Process(reinterpret_cast<const char*>(memory_.data()),
                           reinterpret_cast<char*>(memory_.data() + kSamples * 5 / 2), kChannels,
                           kSamples * sizeof(Sample), kFormat);
        benchmark::DoNotOptimize(memory_.data());
        benchmark::ClobberMemory();
    }
    void scaleByHand(float gain) {
        hand::scaleAvx2(memory_.data(), memory_.data() + kSamples * 5 / 2, kSamples, gain);
        benchmark::DoNotOptimize(memory_.data());
        benchmark::ClobberMemory();
    }

  private:
    static constexpr std::size_t kSamples = kFrames * kChannels;
    bench::Vector<Sample> memory_ = bench::Vector<Sample>(4 * kSamples);
};

/// Both gains change all the time: ducking is switched before it arrives, the compressor follows a
/// sine above its threshold.
template <typename Sample>
void moving(benchmark::State& state) {
    VolumeController controller(kRate);
    controller.SetDuckingParams({.enable = true, .releaseTime = 0.2F, .holdTime = 0.0F});
    controller.SetCompressorParams({.enable = true});
    controller.init_params();
    Blocks<Sample> blocks;
    unsigned block = 0;
    for (auto _ : state) {
        controller.SetDuckingVolume((++block & 16U) != 0 ? 0.0F : -60.0F, true);
        blocks.process(controller);
    }
}

/// Ducking has long arrived; a compressor, if there is one, hears nothing above its threshold.
template <typename Sample>
void steady(benchmark::State& state, bool hasCompressor) {
    VolumeController controller(kRate);
    controller.SetDuckingParams({.enable = true, .attackTime = 0.01F});
    controller.SetCompressorParams({.enable = hasCompressor, .threshold = 0.0F});
    controller.init_params();
    controller.SetDuckingVolume(0.0F, true);
    Blocks<Sample> blocks;
    for (int block = 0; block < 200; ++block) {
        blocks.process(controller);
    }
    for (auto _ : state) {
        blocks.process(controller);
    }
}

/// What a gain that has come to rest cannot cost less than: one pass of vectors.
template <typename Sample>
void scaling(benchmark::State& state) {
    Blocks<Sample> blocks;
    float gain = 0.1F;
    benchmark::DoNotOptimize(gain);
    for (auto _ : state) {
        blocks.scaleByHand(gain);
    }
}

/// What a changing gain cannot cost less than: each step waits for the one before.
void chain(benchmark::State& state) {
    float current = 1.0F;
    float target = 0.1F;
    float coefficient = 0.9998F;
    benchmark::DoNotOptimize(target);
    benchmark::DoNotOptimize(coefficient);
    for (auto _ : state) {
        current =
            hand::smootherChain(current > 0.2F ? current : 1.0F, target, coefficient, kFrames);
        benchmark::DoNotOptimize(current);
    }
}

void addPeer(const std::string& name, const std::string& filter, const std::string& options,
             bool hasSideChain) {
    bench::add(kArea, name, filter, [=](benchmark::State& state) {
        FilterPeer peer(filter, options, hasSideChain, kFrames);
        for (auto _ : state) {
            peer.process();
        }
    });
}

template <typename Sample>
void addAll(const std::string& kind) {
    const std::string shape = kind + " stereo, 512 frames";
    bench::add(kArea, "moving, " + shape, "ours", moving<Sample>);
    bench::add(kArea, "moving, " + shape, "limit", chain);
    bench::add(kArea, "steady, " + shape, "ours",
               [](benchmark::State& state) { steady<Sample>(state, false); });
    bench::add(kArea, "steady with a quiet compressor, " + shape, "ours",
               [](benchmark::State& state) { steady<Sample>(state, true); });
    if (hand::hasAvx2()) {
        bench::add(kArea, "steady, " + shape, "limit AVX2", scaling<Sample>);
        bench::add(kArea, "steady with a quiet compressor, " + shape, "limit AVX2",
                   scaling<Sample>);
    }
}

}  // namespace

void registerBenchmarks() {
    addAll<float>("float");
    addAll<std::int16_t>("16-bit");
    const std::string name = "moving, beside libavfilter, 512 frames";
    bench::add(kArea, name, "ours", moving<float>);
    addPeer(name, "acompressor", "threshold=0.18:ratio=5:attack=50:release=100", false);
    addPeer(name, "sidechaincompress", "threshold=0.18:ratio=5:attack=50:release=100", true);
}
