#pragma once

#include <chrono>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <thread>
#include <vector>

// A program with two streams, the second of which begins a second after the first. Each begins with
// a short sound and then plays silence, so that two sounds are heard, whose distance can be
// measured.

namespace twostreams {

inline constexpr unsigned kRate = 48000;
inline constexpr std::size_t kChannels = 2;

/// The sample of that frame, the same in all channels: 20 ms of sound, which begins at its first
/// frame, and silence.
inline float sampleAt(std::size_t frame) {
    constexpr std::size_t kSound = kRate / 50;
    constexpr double kHertz = 1000;
    const double phase = 2 * std::numbers::pi * kHertz * static_cast<double>(frame) / kRate;
    return frame < kSound ? static_cast<float>(0.5 * std::cos(phase)) : 0;
}

/// Two seconds of it, interleaved, as 16-bit samples.
inline std::vector<short> wholeStream() {
    std::vector<short> samples;
    for (std::size_t frame = 0; frame < 2 * std::size_t{kRate}; ++frame) {
        samples.insert(samples.end(), kChannels, static_cast<short>(32767 * sampleAt(frame)));
    }
    return samples;
}

/// Calls `play` in two threads, which returns when its stream is played and whether it could be.
template <typename Play>
int playTwo(Play play) {
    bool isFirst = false;
    bool isSecond = false;
    std::thread first([&] { isFirst = play("first"); });
    std::this_thread::sleep_for(std::chrono::seconds{1});
    std::thread second([&] { isSecond = play("second"); });
    first.join();
    second.join();
    return isFirst && isSecond ? 0 : 1;
}

}  // namespace twostreams
