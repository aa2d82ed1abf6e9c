#pragma once

#include "common/Planes.h"
#include "format/RateConverter.h"
#include "format/RateRatio.h"

namespace tqplatform {

/// The sum of all mixer buses of one rate on its way to the mixer's rate. Before a slice it says
/// how many frames each bus has to give, so that all buses can be pulled in one order, whatever
/// their rates.
class RateGroup {
  public:
    RateGroup(Float64 inputRate, Float64 outputRate, UInt32 channels, UInt32 maximumFrames);
    RateGroup(const RateGroup&) = delete;
    RateGroup& operator=(const RateGroup&) = delete;

    [[nodiscard]] bool fits(Float64 inputRate, Float64 outputRate, UInt32 channels,
                            UInt32 maximumFrames) const noexcept;
    [[nodiscard]] Float64 inputRate() const noexcept { return inputRate_; }
    [[nodiscard]] Float64 outputRate() const noexcept { return outputRate_; }

    /// [render thread] [real-time safe] Begins a slice of `frames` output frames at the mixer's
    /// sample time: the sum is silence.
    void begin(UInt32 frames, Float64 sampleTime) noexcept;
    /// Frames that each bus gives to this slice, and the sample time of the first of them.
    [[nodiscard]] UInt32 inputFrames() const noexcept { return inputFrames_; }
    [[nodiscard]] Float64 sampleTime() const noexcept { return sampleTime_; }
    /// [render thread] [real-time safe] Adds frames of a bus to the sum from frame `first` on,
    /// channel by channel with its gain.
    void add(UInt32 first, const tqcommon::ConstAudioView& planes, const Float32* gains) noexcept;
    /// [render thread] [real-time safe] The slice at the mixer's rate: written into `planes` by the
    /// first group of a slice, added by the others.
    void finish(const tqcommon::AudioView& planes, bool isFirst) noexcept;
    /// [render thread] [real-time safe] Forgets the past.
    void restart() noexcept;

  private:
    static OSStatus giveSum(void* context, const tqcommon::AudioView& planes);

    Float64 inputRate_;
    Float64 outputRate_;
    UInt32 maximumFrames_;
    RateRatio ratio_;
    UInt32 mostInputFrames_;
    RateConverter converter_;
    tqcommon::Planes sum_;
    tqcommon::Planes converted_;
    bool started_ = false;
    Float64 sampleTime_ = 0;
    Float64 nextOutputTime_ = 0;  ///< of the slice that follows without a gap
    std::int64_t credit_ = 0;     ///< input pulled beyond the output so far, times ratio_.output
    UInt32 outputFrames_ = 0;
    UInt32 inputFrames_ = 0;
    UInt32 given_ = 0;
};

}  // namespace tqplatform
