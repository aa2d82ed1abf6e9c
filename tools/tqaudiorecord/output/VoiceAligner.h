#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "common/SincKernel.h"

namespace tqrecorder {

/// Lays what a microphone hears on another clock, frame by frame. Both have the same rate on paper;
/// the microphone's clock drifts, so that it is read a little faster or slower. While both agree
/// samples pass as they are. Where it stood still there is silence of that length.
/// [one host thread at a time]
class VoiceAligner {
  public:
    /// `rate` in Hz, of both. Throws std::bad_alloc.
    VoiceAligner(std::uint32_t channels, double rate);

    /// A block, interleaved, whose first frame was heard at `position`, in frames of the other
    /// clock. What lies before 0 is left out.
    void add(double position, std::span<const float> samples);
    /// All frames that are there by now, interleaved; the first is at next() as it was before.
    [[nodiscard]] std::vector<float> take();
    /// The frame of the other clock that comes next.
    [[nodiscard]] std::int64_t next() const { return next_; }

    /// Frames of the microphone for each of the other clock.
    [[nodiscard]] double ratio() const { return ratio_; }
    /// How often it was not where it was expected, so that silence or a step lies there.
    [[nodiscard]] std::uint64_t steps() const { return steps_; }

  private:
    void begin(double position);
    void steer(double away, double frames);
    void step(double away, double position, std::span<const float>& samples);
    [[nodiscard]] double unread() const;

    const std::uint32_t channels_;
    const double rate_;
    const tqcommon::SincKernel kernel_;
    std::vector<float> held_;  ///< what was heard, with what the kernel needs in front
    std::size_t read_ = 0;     ///< frame of `held_` under the first tap
    double phase_ = 0;         ///< of the next frame, behind the centre tap
    std::int64_t next_ = 0;
    bool isFlowing_ = false;
    double ratio_ = 1;
    double mean_ = 0;      ///< how much later blocks belong than they would lie, in frames
    double drift_ = 0;     ///< what was learnt of the clock, as a part of `ratio_`
    double followed_ = 0;  ///< frames since the last step
    std::uint64_t steps_ = 0;
};

}  // namespace tqrecorder
