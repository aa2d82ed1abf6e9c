#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <memory>

namespace tqplatform {

/// Where a converter gets its input: exactly `frames` float samples into each plane. A non-zero
/// status ends the pull. [real-time safe]
using FramePull = OSStatus (*)(void* context, UInt32 frames, float* const* planes);

/// Changes the sample rate of float planes. Pulled: the consumer names an exact number of output
/// frames and the converter asks its source for what that needs, in pulls of at most
/// `maximumFrames`; over time input and output counts stay in the exact ratio of the rates,
/// nothing is dropped or repeated. Equal rates pass through in one pull of the same size.
class RateConverter {
  public:
    /// Rates above 0, channels 1 to 64. Allocates everything that pulls will need; throws
    /// std::bad_alloc or std::runtime_error when the resampler cannot be made.
    RateConverter(Float64 inputRate, Float64 outputRate, UInt32 channels, UInt32 maximumFrames);
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    /// [one thread] [real-time safe] Fills every plane with `frames` (up to maximumFrames) output
    /// frames; on a failed source the rest is silence and the source's status is returned.
    OSStatus pull(UInt32 frames, float* const* planes, FramePull source, void* context) noexcept;
    /// [one thread] [real-time safe] Forgets the past.
    void reset() noexcept;

  private:
    class Engine;
    std::unique_ptr<Engine> engine_;
};

}  // namespace tqplatform
