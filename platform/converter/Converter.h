#pragma once

#include <AudioToolbox/AudioConverter.h>

#include <optional>

#include "common/Planes.h"
#include "format/ChannelMap.h"
#include "format/PCMFormat.h"
#include "format/RateConverter.h"
#include "format/RateRatio.h"

namespace tqplatform {

/// A buffer list with room for every channel there can be, on the stack.
class ShortList {
  public:
    /// As many buffers as the format has, without data.
    explicit ShortList(const PCMFormat& format) noexcept;
    /// What is left of `list` behind the first frames.
    ShortList(const AudioBufferList& list, const PCMFormat& format, UInt32 skipped) noexcept;
    [[nodiscard]] AudioBufferList& list() noexcept;

  private:
    alignas(AudioBufferList)
        std::byte bytes_[sizeof(AudioBufferList) + sizeof(AudioBuffer) * kMaximumChannels];
};

/// What stands behind an AudioConverterRef. Used by one thread at a time.
///
/// Input is collected before it is converted, as much as the next output frames take: when the
/// program has no more at the moment, nothing was made up in its place and the stream goes on
/// without a gap. Its resampler gives sound a little late; so much is dropped before the first
/// frame and fetched behind the last, so that converted sound lies where it lay.
class Converter {
  public:
    struct Input {
        AudioConverterComplexInputDataProc proc;
        void* userData;
    };

    /// Throws std::bad_alloc, or std::runtime_error for rates too far apart.
    Converter(const AudioStreamBasicDescription& source,
              const AudioStreamBasicDescription& destination);

    void setHandle(void* handle) noexcept { handle_ = static_cast<AudioConverterRef>(handle); }
    void close() noexcept {}

    void reset() noexcept;
    OSStatus propertyInfo(AudioConverterPropertyID id, UInt32& size, bool& writable) const noexcept;
    OSStatus getProperty(AudioConverterPropertyID id, UInt32& size, void* data) const;
    OSStatus setProperty(AudioConverterPropertyID id, UInt32 size, const void* data);

    OSStatus convertBuffer(UInt32 inputBytes, const void* input, UInt32& outputBytes,
                           void* output) noexcept;
    OSStatus convertLists(UInt32 frames, const AudioBufferList& input,
                          AudioBufferList& output) noexcept;
    OSStatus fill(const Input& input, UInt32& frames, AudioBufferList& output) noexcept;

  private:
    static constexpr UInt32 kChunk = 512;  ///< output frames that are made at a time

    /// Frames of the source as planes of the destination's channels.
    void read(const AudioBufferList& list, const tqcommon::AudioView& planes) noexcept;
    /// Asks for input until there are `needed` frames or no more come.
    OSStatus collect(const Input& input, UInt32 needed) noexcept;
    /// Takes frames of what the program gave last.
    void takePending(UInt32 needed) noexcept;
    void takeTail(UInt32 needed) noexcept;
    static OSStatus giveCollected(void* context, const tqcommon::AudioView& planes);
    [[nodiscard]] bool hasOneBuffer() const noexcept {
        return source_.bufferCount() == 1 && destination_.bufferCount() == 1;
    }

    AudioConverterRef handle_ = nullptr;
    const AudioStreamBasicDescription sourceDescription_;
    const AudioStreamBasicDescription destinationDescription_;
    const PCMFormat source_;
    const PCMFormat destination_;
    const RateRatio ratio_;
    RateConverter resampler_;
    tqcommon::Planes read_;       ///< in the source's channels
    tqcommon::Planes collected_;  ///< in the destination's channels, at the source's rate
    tqcommon::Planes made_;
    ChannelMap channelMap_;
    UInt32 complexity_ = kAudioConverterSampleRateConverterComplexity_Normal;
    UInt32 quality_ = kAudioConverterQuality_Max;
    UInt32 primeMethod_ = kConverterPrimeMethod_Normal;

    std::optional<ShortList> pending_;  ///< what the program gave last
    UInt32 pendingFrames_ = 0;
    UInt32 pendingTaken_ = 0;
    UInt32 collectedFrames_ = 0;
    UInt32 collectedGiven_ = 0;
    std::int64_t credit_ = 0;  ///< input converted beyond the output so far, times ratio_.output
    UInt32 early_ = 0;         ///< output frames to be dropped, made before the first one
    UInt32 tail_ = 0;          ///< frames of silence still to go in behind the end
    bool ended_ = false;
};

}  // namespace tqplatform
