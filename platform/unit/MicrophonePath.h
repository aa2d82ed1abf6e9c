#pragma once

#include "common/Planes.h"
#include "format/ChannelMap.h"
#include "format/PCMFormat.h"
#include "format/RateConverter.h"
#include "format/RateRatio.h"

namespace tqplatform {

/// What the microphone heard, on its way into the program's format. The device's thread brings
/// one slice at a time and the program fetches it within that slice; what it leaves is lost, so
/// that sound never piles up.
class MicrophonePath {
  public:
    MicrophonePath(Float64 deviceRate, UInt32 deviceChannels, const PCMFormat& format,
                   UInt32 maximumFrames, ChannelMap map);

    /// [render thread] [real-time safe] Takes the slice in. Returns how many frames can be fetched
    /// from it.
    UInt32 bring(const tqcommon::ConstAudioView& planes) noexcept;
    /// [render thread] [real-time safe] Writes the next frames; beyond those that were brought
    /// there is silence.
    void fetch(UInt32 frames, AudioBufferList& list) noexcept;
    /// [render thread] [real-time safe] Forgets the past: the next slice is the first one.
    void restart() noexcept;

    [[nodiscard]] bool fits(Float64 deviceRate, UInt32 deviceChannels, const PCMFormat& format,
                            UInt32 maximumFrames, const ChannelMap& map) const noexcept;

  private:
    static OSStatus giveHeard(void* context, const tqcommon::AudioView& planes);

    Float64 deviceRate_;
    UInt32 deviceChannels_;
    PCMFormat format_;
    UInt32 maximumFrames_;
    ChannelMap map_;  ///< from the device's channels to the program's
    RateRatio ratio_;
    RateConverter converter_;
    tqcommon::Planes heard_;  ///< slice at the device's rate, behind what the last one left over
    tqcommon::Planes converted_;  ///< slice at the program's rate
    tqcommon::Planes mapped_;     ///< in the program's channels
    UInt32 heardFrames_ = 0;
    UInt32 heardGiven_ = 0;
    UInt32 convertedFrames_ = 0;
    UInt32 fetched_ = 0;
    std::int64_t credit_ = 0;
};

}  // namespace tqplatform
