#pragma once

#include "common/Planes.h"
#include "format/PCMFormat.h"
#include "unit/BusMemory.h"
#include "unit/ChannelFold.h"
#include "unit/InputSource.h"

namespace tqplatform {

/// How one pull of an input bus is made.
struct BusPull {
    const InputSource& source;
    bool allocate;  ///< whether the source is handed memory to fill
    UInt32 bus;     ///< the number the source is told
    AudioUnitRenderActionFlags& flags;
    const AudioTimeStamp& time;
};

/// Reads an input bus in its own format and at its own rate as float planes of another channel
/// count. Used by one render thread at a time.
class BusReader {
  public:
    /// `fold` says how more channels become two; where it is none, those that are too many go.
    BusReader(const PCMFormat& format, UInt32 channels, UInt32 maximumFrames,
              ChannelFold fold = {});

    /// [render thread] [real-time safe] Pulls as many frames as `planes` has (up to the maximum).
    /// What the source leaves out is silence, and so is everything when it fails; its status is
    /// returned.
    OSStatus read(const BusPull& pull, const tqcommon::AudioView& planes) noexcept;

    /// [render thread] [real-time safe] The same without a copy where there need be none: `found`
    /// shows where the samples are until the next read, with the source or in `planes`.
    OSStatus readInPlace(const BusPull& pull, const tqcommon::AudioView& planes,
                         tqcommon::ConstAudioView& found) noexcept;

    [[nodiscard]] bool fits(const PCMFormat& format, UInt32 channels, UInt32 maximumFrames,
                            const ChannelFold& fold = {}) const noexcept;

  private:
    /// What the source gave, and how many frames of it count.
    struct Given {
        const AudioBufferList& list;
        UInt32 held;
        OSStatus status;
    };
    Given take(const BusPull& pull, UInt32 frames) noexcept;
    void convert(const Given& given, const tqcommon::AudioView& planes) noexcept;
    /// Shows the samples where the source left them, when they can be read there.
    [[nodiscard]] bool find(const Given& given, UInt32 frames,
                            tqcommon::ConstAudioView& found) const noexcept;

    BusMemory memory_;
    UInt32 channels_;
    UInt32 maximumFrames_;
    ChannelFold fold_;
    tqcommon::Planes planes_;  ///< of the bus's own channels, when they are others than asked for
};

}  // namespace tqplatform
