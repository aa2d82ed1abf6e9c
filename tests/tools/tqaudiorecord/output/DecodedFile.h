#pragma once

#include <cmath>
#include <cstddef>
#include <numbers>
#include <string>
#include <vector>

namespace tqrecorder::test {

/// One stream of a sound file, as a player decodes it.
struct DecodedStream {
    std::string title;
    std::string codec;
    std::string samplesAs;  ///< of the decoder
    int rate = 0;
    int channels = 1;
    int bits = 0;                 ///< of a sample as the file states it; 0 where it does not
    double start = 0;             ///< seconds, of its first frame
    double worstJump = 0;         ///< seconds, between the end of one packet and the next
    std::vector<double> samples;  ///< interleaved, full scale is 1

    [[nodiscard]] std::size_t frames() const {
        return samples.size() / static_cast<std::size_t>(channels);
    }
    [[nodiscard]] double seconds() const { return static_cast<double>(frames()) / rate; }
    [[nodiscard]] double at(std::size_t frame) const {
        return samples.at(frame * static_cast<std::size_t>(channels));
    }
    /// As 16-bit numbers.
    [[nodiscard]] int numberAt(std::size_t frame) const {
        return static_cast<int>(std::lround(at(frame) * 32768));
    }
    /// Of a sine in the first channel, over [from, to) seconds of the stream.
    [[nodiscard]] double amplitude(double hertz, double from, double to) const;
};

/// A sound file read through libavformat and libavcodec.
struct DecodedFile {
    explicit DecodedFile(const std::string& path);

    bool opened = false;
    double seconds = 0;  ///< as the file states it
    std::vector<DecodedStream> streams;
    std::vector<std::string> complaints;  ///< of the libraries

    /// The one of that title; an empty one without it.
    [[nodiscard]] const DecodedStream& stream(const std::string& title) const;
    [[nodiscard]] std::vector<std::string> titles() const;
};

}  // namespace tqrecorder::test
