#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tqpicture {

/// What the waveform shows in one pixel column.
struct EnvelopeColumn {
    float lowest = 0;  ///< over all channels, full scale is 1
    float highest = 0;
    float rms = 0;  ///< over all samples of all channels
    bool hasData = false;
};

/// What is summed up of some frames.
struct EnvelopeSum {
    float lowest = 0;
    float highest = 0;
    double squares = 0;  ///< of all samples
    std::uint64_t frames = 0;

    /// Of one frame of so many samples, all finite.
    [[nodiscard]] static EnvelopeSum of(const float* frame, int channels);
    void add(const EnvelopeSum& other);
    [[nodiscard]] EnvelopeColumn column(int channels) const;
    /// Largest magnitude.
    [[nodiscard]] double peak() const;
    [[nodiscard]] double rms(int channels) const;
};

/// Collects a recording, block by block, into pixel columns. Columns narrower than a frame repeat
/// the frame that they lie in.
class EnvelopeBuilder {
  public:
    /// `columns` columns of `framesPerColumn` frames each (any positive number); the recording
    /// begins `startFrame` frames into the first column.
    EnvelopeBuilder(std::size_t columns, double framesPerColumn, double startFrame, int channels);

    /// `frames` interleaved frames, all samples finite. Frames beyond the last column are dropped.
    void push(const float* samples, std::size_t frames);
    /// The columns so far; the last one may still be growing.
    [[nodiscard]] std::vector<EnvelopeColumn> columns() const;

    /// Largest magnitude and RMS of everything pushed, dropped frames included.
    [[nodiscard]] double peak() const { return whole_.peak(); }
    [[nodiscard]] double rms() const { return whole_.rms(channels_); }

  private:
    std::vector<EnvelopeSum> sums_;
    double framesPerColumn_;
    double position_;  // axis frame of the next frame pushed
    int channels_;
    EnvelopeSum whole_;
};

}  // namespace tqpicture
