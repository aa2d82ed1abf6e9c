#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstdint>
#include <memory>

#include "TQAudioRecordExport.h"

/// What a PCM block is: the flat copy of its stream format that travels with it, with the track
/// it belongs to and when it was. [any thread, one at a time]; a record handed to a listener is
/// valid during the call and belongs to the library.
class TQ_RECORD_EXPORT RZReplayASBDInfo {
  public:
    /// All zero.
    RZReplayASBDInfo() = default;
    /// A new record of that format with volume 1.0; track and time stamp stay 0.
    [[nodiscard]] static std::shared_ptr<RZReplayASBDInfo> formatInfoWithDesc(
        const AudioStreamBasicDescription& desc);
    /// Takes the format over and sets volume 1.0; track and time stamp stay as they are, so a
    /// record keeps its track across format changes.
    void updateInfoWithDesc(const AudioStreamBasicDescription& desc);

    /// 1 to 7 for a track's own PCM; the mix bears 1.
    [[nodiscard]] std::int32_t trackId() const { return trackId_; }
    void setTrackId(std::int32_t trackId) { trackId_ = trackId; }
    /// Hz.
    [[nodiscard]] double sampleRate() const { return sampleRate_; }
    void setSampleRate(double sampleRate) { sampleRate_ = sampleRate; }
    [[nodiscard]] std::uint32_t bytesPerPacket() const { return bytesPerPacket_; }
    void setBytesPerPacket(std::uint32_t bytes) { bytesPerPacket_ = bytes; }
    /// Of one buffer: of one channel when the format is not interleaved.
    [[nodiscard]] std::int32_t bytesPerFrame() const { return bytesPerFrame_; }
    void setBytesPerFrame(std::int32_t bytes) { bytesPerFrame_ = bytes; }
    [[nodiscard]] std::int32_t channelsPerFrame() const { return channelsPerFrame_; }
    void setChannelsPerFrame(std::int32_t channels) { channelsPerFrame_ = channels; }
    [[nodiscard]] std::int32_t bitsPerChannel() const { return bitsPerChannel_; }
    void setBitsPerChannel(std::int32_t bits) { bitsPerChannel_ = bits; }
    /// kAudioFormatFlag...
    [[nodiscard]] std::uint32_t formatFlags() const { return formatFlags_; }
    void setFormatFlags(std::uint32_t flags) { formatFlags_ = flags; }
    /// Microseconds of host time.
    [[nodiscard]] std::uint64_t timeStamp() const { return timeStamp_; }
    void setTimeStamp(std::uint64_t microseconds) { timeStamp_ = microseconds; }
    /// The program's unit that rendered it: its number in the order of first starts, shifted by 1,
    /// and in the lowest bit whether it is a graph's; 0 for the mix. Unlike track numbers it is
    /// never another unit's.
    [[nodiscard]] std::uint32_t unit() const { return unit_; }
    void setUnit(std::uint32_t unit) { unit_ = unit; }
    /// Linear.
    [[nodiscard]] double volume() const { return volume_; }
    void setVolume(double volume) { volume_ = volume; }

  private:
    std::int32_t trackId_ = 0;
    double sampleRate_ = 0;
    std::uint32_t bytesPerPacket_ = 0;
    std::int32_t bytesPerFrame_ = 0;
    std::int32_t channelsPerFrame_ = 0;
    std::int32_t bitsPerChannel_ = 0;
    std::uint32_t formatFlags_ = 0;
    std::uint64_t timeStamp_ = 0;
    std::uint32_t unit_ = 0;
    double volume_ = 0;
};
