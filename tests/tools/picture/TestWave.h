#pragma once

#include <sndfile.h>

#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"

// Recordings for tests of the picture room.

namespace tqpicture::test {

inline std::vector<float> sine(double hertz, double sampleRate, std::size_t frames,
                               double amplitude, int channels = 1) {
    std::vector<float> samples;
    samples.reserve(frames * static_cast<std::size_t>(channels));
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const double phase = 2 * std::numbers::pi * hertz * static_cast<double>(frame) / sampleRate;
        samples.insert(samples.end(), static_cast<std::size_t>(channels),
                       static_cast<float>(amplitude * std::sin(phase)));
    }
    return samples;
}

/// True when the whole file was written.
inline bool writeWave(const std::string& path, const std::vector<float>& samples, int sampleRate,
                      int channels = 1, int encoding = SF_FORMAT_FLOAT) {
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | encoding;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        return false;
    }
    const auto count = static_cast<sf_count_t>(samples.size());
    const sf_count_t written = sf_write_float(file, samples.data(), count);
    return sf_close(file) == 0 && written == count;
}

}  // namespace tqpicture::test
