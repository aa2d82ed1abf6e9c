#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "picture/Envelope.h"

namespace tqpicture {

/// The waveform of a recording whose length is not known yet. Takes the same room however long it
/// becomes: when the columns are used up, each two become one.
class GrowingEnvelope {
  public:
    explicit GrowingEnvelope(int channels) : channels_(channels) {}

    /// `frames` interleaved frames, all samples finite.
    void push(const float* samples, std::size_t frames);
    void pushSilence(std::uint64_t frames);

    [[nodiscard]] std::uint64_t frames() const { return whole_.frames; }
    /// Largest magnitude and RMS of everything so far.
    [[nodiscard]] double peak() const { return whole_.peak(); }
    [[nodiscard]] double rms() const { return whole_.rms(channels_); }
    /// As EnvelopeBuilder gives them for a recording that begins `startFrame` frames into the first
    /// of `count` columns, but for borders of columns, which are off by a part of a column.
    [[nodiscard]] std::vector<EnvelopeColumn> columns(std::size_t count, double framesPerColumn,
                                                      double startFrame) const;

    /// At most that many columns are kept, and at least half of them once there were as many
    /// frames.
    static constexpr std::size_t kMostColumns = 8192;

  private:
    void add(const EnvelopeSum& frames);
    void halve();

    int channels_;
    std::vector<EnvelopeSum> sums_;  // the last one may still be growing
    std::uint64_t width_ = 1;        // frames of each
    EnvelopeSum whole_;
};

}  // namespace tqpicture
