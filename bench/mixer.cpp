// Seven tracks of 48000 Hz to the mix of 44100 Hz, and what one of them sounds like afterwards.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>
#include <vector>

#include "Bench.h"
#include "mixer_tracks.h"

namespace {

using namespace mixing;

constexpr const char* kArea = "mixer";
constexpr double kLevel = 0.891250938133745;  // -1 dBFS

Signal sine(double frequency) {
    return [frequency](std::uint64_t frame) {
        const double phase = frequency * static_cast<double>(frame) / kInputRate;
        return static_cast<float>(kLevel *
                                  std::sin(2 * std::numbers::pi * (phase - std::floor(phase))));
    };
}

/// The left channel of a second of one track's mix, in floats, after half a second.
std::vector<double> mixOf(double frequency) {
    OurMixer mixer(1, sine(frequency), true);
    std::vector<double> samples;
    constexpr std::size_t kSkipped = 22050;
    constexpr std::size_t kWanted = 44100;
    while (samples.size() < kSkipped + kWanted) {
        const auto* const block = static_cast<const float*>(mixer.pull());
        for (UInt32 i = 0; i < kFrames; ++i) {
            samples.push_back(block[2 * i]);
        }
    }
    return {samples.begin() + kSkipped, samples.begin() + kSkipped + kWanted};
}

double rms(const std::vector<double>& samples) {
    double sum = 0;
    for (const double sample : samples) {
        sum += sample * sample;
    }
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

/// Amplitude of the tone of that frequency; what is not it stays in `rest`. Over a whole number of
/// periods the two projections are the least-squares fit.
double takeTone(std::vector<double>& rest, double frequency) {
    const double step = 2 * std::numbers::pi * frequency / kOutputRate;
    double real = 0;
    double imaginary = 0;
    for (std::size_t i = 0; i < rest.size(); ++i) {
        real += rest[i] * std::cos(step * static_cast<double>(i));
        imaginary += rest[i] * std::sin(step * static_cast<double>(i));
    }
    const double scale = 2 / static_cast<double>(rest.size());
    real *= scale;
    imaginary *= scale;
    for (std::size_t i = 0; i < rest.size(); ++i) {
        rest[i] -= real * std::cos(step * static_cast<double>(i)) +
                   imaginary * std::sin(step * static_cast<double>(i));
    }
    return std::hypot(real, imaginary);
}

double decibels(double ratio) {
    return 20 * std::log10(std::max(ratio, 1e-12));
}

double distortion(double frequency) {
    std::vector<double> rest = mixOf(frequency);
    const double tone = takeTone(rest, frequency);
    return decibels(rms(rest) * std::numbers::sqrt2 / tone);
}

double gain(double frequency) {
    std::vector<double> rest = mixOf(frequency);
    return decibels(takeTone(rest, frequency) / kLevel);
}

double alias(double frequency) {
    return decibels(rms(mixOf(frequency)) * std::numbers::sqrt2 / kLevel);
}

/// From the newest input that a pull has taken to the input time of what it gave, milliseconds.
double latency() {
    constexpr std::uint64_t kImpulse = 4800;
    OurMixer mixer(
        1, [](std::uint64_t frame) { return frame == kImpulse ? 1.0F : 0.0F; }, true);
    double produced = 0;
    double ahead = 0;
    double peakAt = 0;
    double peak = 0;
    for (int pull = 0; pull < 40; ++pull) {
        const auto* const block = static_cast<const float*>(mixer.pull());
        for (UInt32 i = 0; i < kFrames; ++i) {
            if (std::fabs(block[2 * i]) > peak) {
                peak = std::fabs(block[2 * i]);
                peakAt = produced + i;
            }
        }
        produced += kFrames;
        ahead = std::max(
            ahead, static_cast<double>(mixer.consumed()) / kInputRate - produced / kOutputRate);
    }
    const double delay = peakAt / kOutputRate - static_cast<double>(kImpulse) / kInputRate;
    return 1000 * (ahead + delay);
}

/// Cost of the dearest pull in thirty over that of the one in the middle.
double burst() {
    OurMixer mixer(kTracks, sine(997), false);
    std::vector<double> costs;
    for (int pull = 0; pull < 3000; ++pull) {
        const auto before = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(mixer.pull());
        costs.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count());
    }
    std::sort(costs.begin(), costs.end());
    return costs[costs.size() * 97 / 100] / costs[costs.size() / 2];
}

template <class Measure>
void addValue(const char* name, Measure measure) {
    bench::add(kArea, name, "ours", [measure](benchmark::State& state) {
        double value = 0;
        for (auto _ : state) {
            value = measure();
        }
        state.counters["value"] = value;
    })->Iterations(1);
}

}  // namespace

void registerBenchmarks() {
    constexpr const char* kName = "7 stereo float tracks, 512-frame pulls";
    bench::add(kArea, kName, "ours", [](benchmark::State& state) {
        OurMixer mixer(kTracks, sine(997), false);
        for (auto _ : state) {
            benchmark::DoNotOptimize(mixer.pull());
        }
    });
    bench::add(kArea, kName, "7 swresample streams", [](benchmark::State& state) {
        SwresampleTracks tracks(sine(997));
        for (auto _ : state) {
            benchmark::DoNotOptimize(tracks.pull());
        }
    });
    for (const int tracks : {1, 2, 4}) {
        bench::add(kArea, std::to_string(tracks) + " stereo float tracks, 512-frame pulls", "ours",
                   [tracks](benchmark::State& state) {
                       OurMixer mixer(tracks, sine(997), false);
                       for (auto _ : state) {
                           benchmark::DoNotOptimize(mixer.pull());
                       }
                   });
    }
    for (const UInt32 frames : {16U, 64U, 256U, 1024U, 4096U}) {
        bench::add(kArea, "7 stereo float tracks, a frame in pulls of " + std::to_string(frames),
                   "ours", [frames](benchmark::State& state) {
                       OurMixer mixer(kTracks, sine(997), false);
                       for (auto _ : state) {
                           for (UInt32 done = 0; done < 4096; done += frames) {
                               benchmark::DoNotOptimize(mixer.pull(frames));
                           }
                       }
                       state.counters["value"] = benchmark::Counter(
                           4096e-9, benchmark::Counter::kIsIterationInvariantRate |
                                        benchmark::Counter::kInvert);
                   });
    }
    addValue("THD+N of 1 kHz, dB", [] { return distortion(1000); });
    addValue("THD+N of 10 kHz, dB", [] { return distortion(10000); });
    addValue("level of 20 kHz, dB", [] { return gain(20000); });
    addValue("alias of 23 kHz, dB", [] { return alias(23000); });
    addValue("latency, ms", latency);
    addValue("97th percentile of a pull's cost over its median", burst);
}
