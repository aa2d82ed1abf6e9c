#pragma once

#include "format/RateConverter.h"
#include "unit/BusReader.h"

namespace tqplatform {

/// Reads one input bus at another rate and channel count. Used by one render thread at a time.
class ConvertedInput {
  public:
    /// Throws when the converter for these rates cannot be made.
    ConvertedInput(const PCMFormat& format, Float64 rate, UInt32 channels, UInt32 maximumFrames);

    /// [real-time safe] Fills the planes with exactly `frames` at the outer rate; pull.time is in
    /// the outer rate, too. The source sees sample times that count in its own frames.
    OSStatus read(const BusPull& pull, UInt32 frames, float* const* planes) noexcept;
    /// [real-time safe] Forgets the past: the next read begins anew at its own time.
    void restart() noexcept;

    [[nodiscard]] bool fits(const PCMFormat& format, Float64 rate, UInt32 channels,
                            UInt32 maximumFrames) const noexcept;

  private:
    static OSStatus pullBus(void* context, UInt32 frames, float* const* planes);

    Float64 innerRate_;
    Float64 rate_;
    UInt32 channels_;
    UInt32 innerChannels_;  ///< the fewer of both sides: no channel is resampled twice
    BusReader reader_;
    RateConverter converter_;
    Planes planes_;
    bool started_ = false;
    Float64 nextOutputTime_ = 0;
    Float64 nextSampleTime_ = 0;
    const BusPull* pull_ = nullptr;  ///< during a read
};

}  // namespace tqplatform
