#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace tqrecorder {

/// Names of the elements of a Matroska file that are written here.
enum class EbmlId : std::uint32_t {
    kHeader = 0x1A45DFA3,
    kVersion = 0x4286,
    kReadVersion = 0x42F7,
    kMaxIdLength = 0x42F2,
    kMaxSizeLength = 0x42F3,
    kDocType = 0x4282,
    kDocTypeVersion = 0x4287,
    kDocTypeReadVersion = 0x4285,
    kVoid = 0xEC,
    kSegment = 0x18538067,
    kSeekHead = 0x114D9B74,
    kSeek = 0x4DBB,
    kSeekId = 0x53AB,
    kSeekPosition = 0x53AC,
    kInfo = 0x1549A966,
    kTimestampScale = 0x2AD7B1,
    kDuration = 0x4489,
    kMuxingApp = 0x4D80,
    kWritingApp = 0x5741,
    kTracks = 0x1654AE6B,
    kTrackEntry = 0xAE,
    kTrackNumber = 0xD7,
    kTrackUid = 0x73C5,
    kTrackType = 0x83,
    kFlagDefault = 0x88,
    kFlagLacing = 0x9C,
    kName = 0x536E,
    kLanguage = 0x22B59C,
    kCodecId = 0x86,
    kCodecPrivate = 0x63A2,
    kCodecDelay = 0x56AA,
    kSeekPreRoll = 0x56BB,
    kAudio = 0xE1,
    kSamplingFrequency = 0xB5,
    kChannels = 0x9F,
    kBitDepth = 0x6264,
    kCluster = 0x1F43B675,
    kTimestamp = 0xE7,
    kSimpleBlock = 0xA3,
    kBlockGroup = 0xA0,
    kBlock = 0xA1,
    kBlockDuration = 0x9B,
    kDiscardPadding = 0x75A2,
    kCues = 0x1C53BB6B,
    kCuePoint = 0xBB,
    kCueTime = 0xB3,
    kCueTrackPositions = 0xB7,
    kCueTrack = 0xF7,
    kCueClusterPosition = 0xF1,
};

/// Bytes of EBML elements, one behind the other.
class Ebml {
  public:
    void unsignedNumber(EbmlId id, std::uint64_t value);
    void signedNumber(EbmlId id, std::int64_t value);
    void real(EbmlId id, double value);
    void text(EbmlId id, std::string_view text);
    void binary(EbmlId id, std::span<const std::byte> bytes);
    void master(EbmlId id, const Ebml& children) { binary(id, children.bytes()); }

    void id(EbmlId id);
    /// In as few bytes as it takes.
    void size(std::uint64_t size);
    /// In eight bytes, which can be changed later; `kUnknown` for what is not known yet.
    void longSize(std::uint64_t size);
    void number(std::uint64_t value, std::size_t bytes);
    void append(std::span<const std::byte> bytes);

    /// Takes so many bytes in all, at least kShortestVoid.
    void voidOf(std::uint64_t bytes);

    static constexpr std::uint64_t kUnknown = (std::uint64_t{1} << 56U) - 1;
    static constexpr std::uint64_t kShortestVoid = 9;

    [[nodiscard]] std::span<const std::byte> bytes() const { return bytes_; }
    [[nodiscard]] std::size_t length() const { return bytes_.size(); }

  private:
    std::vector<std::byte> bytes_;
};

}  // namespace tqrecorder
