#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "picture/Axis.h"

// What spectrograms are made of: power spectra of overlapping windows, and which of their bins each
// row shows.

namespace tqpicture {

/// Frames of one window at that sample rate, a power of two: about 46 ms.
[[nodiscard]] std::size_t windowFrames(double sampleRate);

/// The power spectrum of one Hann window; a full-scale sine has power 1 at its bin.
class PowerSpectrum {
  public:
    explicit PowerSpectrum(std::size_t frames);
    ~PowerSpectrum();
    PowerSpectrum(const PowerSpectrum&) = delete;
    PowerSpectrum& operator=(const PowerSpectrum&) = delete;

    /// Of that many samples; frames / 2 + 1 bins, valid until the next call.
    [[nodiscard]] const std::vector<float>& of(const float* samples);

  private:
    class Work;
    std::unique_ptr<Work> work_;
};

/// The bins that one row of the picture shows.
struct RowBins {
    std::size_t first = 0;
    std::size_t last = 0;  ///< first > last: the row lies between two bins
    double centre = 0;     ///< the row's middle, counted in bins
    bool hasData = false;  ///< it is not above half the sample rate
};

/// For windows of `frames` frames.
[[nodiscard]] std::vector<RowBins> binsOfRows(const FrequencyScale& scale, double sampleRate,
                                              std::size_t frames);

/// What a row shows of a power spectrum, dBFS.
[[nodiscard]] float levelOfRow(const RowBins& bins, const std::vector<double>& power);

}  // namespace tqpicture
