#pragma once

#include "format/RateConverter.h"
#include "unit/BusReader.h"

namespace tqplatform {

/// Reads one input bus at another rate and channel count. Used by one render thread at a time.
class ConvertedInput {
  public:
    /// Throws when the converter for these rates cannot be made.
    ConvertedInput(const PCMFormat& format, Float64 rate, UInt32 channels, UInt32 maximumFrames);

    /// [render thread] [real-time safe] Fills `planes`, frames of the outer rate in which pull.time
    /// counts, too. The source sees sample times that count in its own frames.
    OSStatus read(const BusPull& pull, const tqcommon::AudioView& planes) noexcept;
    /// [render thread] [real-time safe] Forgets the past: the next read begins anew at its own
    /// time.
    void restart() noexcept;

    [[nodiscard]] bool fits(const PCMFormat& format, Float64 rate, UInt32 channels,
                            UInt32 maximumFrames) const noexcept;

  private:
    static OSStatus pullBus(void* context, const tqcommon::AudioView& planes);

    Float64 innerRate_;
    Float64 rate_;
    UInt32 channels_;
    UInt32 innerChannels_;  ///< the fewer of both sides: no channel is resampled twice
    BusReader reader_;
    RateConverter converter_;
    tqcommon::Planes planes_;
    bool started_ = false;
    Float64 nextOutputTime_ = 0;
    Float64 nextSampleTime_ = 0;
    const BusPull* pull_ = nullptr;  ///< during a read
};

}  // namespace tqplatform
