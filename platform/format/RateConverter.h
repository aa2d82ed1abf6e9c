#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <memory>

#include "common/AudioView.h"

namespace tqplatform {

/// Where a converter gets its input: fills the planes. A non-zero status ends the pull.
/// [render thread] [real-time safe]
using FramePull = OSStatus (*)(void* context, const tqcommon::AudioView& planes);

/// Changes the sample rate of float planes. Pulled: the consumer names an exact number of output
/// frames and the converter asks its source for what that needs, in pulls of at most
/// `maximumFrames`; over time input and output counts stay in the exact ratio of the rates,
/// nothing is dropped or repeated. Equal rates pass through in one pull of the same size.
class RateConverter {
  public:
    /// Rates above 0, channels 1 to kMaximumChannels. Allocates everything that pulls will need;
    /// throws std::bad_alloc or std::runtime_error when the resampler cannot be made. Takes
    /// milliseconds where no converter of the same kind was left by an earlier one.
    RateConverter(Float64 inputRate, Float64 outputRate, UInt32 channels, UInt32 maximumFrames);
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    /// [host thread] Sees to it that the next converter of this kind takes no time. Throws as the
    /// constructor.
    static void prepare(Float64 inputRate, Float64 outputRate, UInt32 channels,
                        UInt32 maximumFrames);

    /// [any thread, one at a time] [real-time safe] Fills the planes with output frames; on a
    /// failed source the rest is silence and the source's status is returned.
    OSStatus pull(const tqcommon::AudioView& planes, FramePull source, void* context) noexcept;
    /// [any thread, one at a time] [real-time safe] Forgets the past.
    void reset() noexcept;
    /// Input frames by which sound comes later than it went in; 0 for equal rates.
    [[nodiscard]] UInt32 delay() const noexcept;

  private:
    class Engine;
    class Spares;
    std::unique_ptr<Engine> engine_;
};

}  // namespace tqplatform
