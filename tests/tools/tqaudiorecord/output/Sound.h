#pragma once

#include <sndfile.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <string>
#include <vector>

#include "core/Records.h"
#include "output/FilesSink.h"
#include "support/TemporaryFolder.h"

// Blocks for the recorder's sinks, and what came of them.

namespace tqrecorder::test {

/// A sine of half of full scale in all channels, from frame `first` on.
template <typename Sample>
std::vector<std::byte> tone(double hertz, const BlockFormat& format, std::size_t frames,
                            std::size_t first = 0) {
    std::vector<Sample> samples;
    samples.reserve(frames * format.channels);
    for (std::size_t frame = first; frame < first + frames; ++frame) {
        const double value = 0.5 * std::sin(2 * std::numbers::pi * hertz *
                                            static_cast<double>(frame) / format.sampleRate);
        const double scale = std::is_floating_point_v<Sample> ? 1 : 32767;
        samples.insert(samples.end(), format.channels, static_cast<Sample>(value * scale));
    }
    std::vector<std::byte> bytes(samples.size() * sizeof(Sample));
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

inline std::vector<std::byte> mixTone(double hertz, std::size_t frames, std::size_t first = 0) {
    return tone<std::int16_t>(hertz, kMixFormat, frames, first);
}

/// Frames that count upwards, so that one that is missing or twice is seen.
inline std::vector<std::byte> counting(std::size_t frames, std::size_t first) {
    std::vector<std::int16_t> samples;
    for (std::size_t frame = first; frame < first + frames; ++frame) {
        samples.insert(samples.end(), 2, static_cast<std::int16_t>(frame % 30000 + 1));
    }
    std::vector<std::byte> bytes(samples.size() * 2);
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

inline Process process(int id, const std::string& name, bool isCommand = false) {
    return {id, 1000 + id, name, isCommand};
}

inline Block mixBlock(std::span<const std::byte> frames, std::uint64_t microseconds) {
    return {0, "", kMixFormat, microseconds, frames};
}

/// A sound file as read back.
struct RecordedFile {
    bool opened = false;
    SF_INFO info{};
    std::vector<float> samples;

    explicit RecordedFile(const std::string& path) {
        SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
        opened = file != nullptr;
        if (opened) {
            constexpr sf_count_t kMost = 30'000'000;
            std::vector<float> block(static_cast<std::size_t>(info.channels) * 4096);
            for (sf_count_t got = 0, all = 0;
                 all < kMost && (got = sf_readf_float(file, block.data(), 4096)) > 0; all += got) {
                samples.insert(samples.end(), block.begin(), block.begin() + got * info.channels);
            }
            sf_close(file);
        }
    }
    [[nodiscard]] std::size_t frames() const {
        return opened ? samples.size() / static_cast<std::size_t>(info.channels) : 0;
    }
    [[nodiscard]] float at(std::size_t frame) const {
        return samples.at(frame * static_cast<std::size_t>(info.channels));
    }
    /// As 16-bit numbers.
    [[nodiscard]] int numberAt(std::size_t frame) const {
        return static_cast<int>(std::lround(at(frame) * 32768));
    }
    /// Amplitude of a sine in the first channel, over whole frames of [from, to) seconds.
    [[nodiscard]] double amplitude(double hertz, double from, double to) const {
        const auto first = static_cast<std::size_t>(from * info.samplerate);
        const auto last = static_cast<std::size_t>(to * info.samplerate);
        double real = 0;
        double imaginary = 0;
        for (std::size_t frame = first; frame < last; ++frame) {
            const double phase =
                2 * std::numbers::pi * hertz * static_cast<double>(frame) / info.samplerate;
            real += at(frame) * std::cos(phase);
            imaginary += at(frame) * std::sin(phase);
        }
        return 2 * std::hypot(real, imaginary) / static_cast<double>(last - first);
    }
};

}  // namespace tqrecorder::test
