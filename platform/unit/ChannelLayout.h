#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace tqplatform {

/// Which loudspeakers the channels of a bus are meant for, as a program said it.
class ChannelLayout {
  public:
    /// What a bus has of which nothing is said: mono, stereo, else one channel after the other.
    explicit ChannelLayout(UInt32 channels);
    /// Nothing when the size is not that of what the value says, or it says nothing. Memory of any
    /// alignment.
    [[nodiscard]] static std::optional<ChannelLayout> parse(const void* data, UInt32 size);

    [[nodiscard]] UInt32 channels() const noexcept { return channels_; }
    /// An AudioChannelLayout with all its descriptions; at least one has room.
    [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return bytes_; }
    /// One for each channel where the layout describes them one by one; else none.
    [[nodiscard]] std::vector<AudioChannelDescription> descriptions() const;

  private:
    ChannelLayout(const AudioChannelLayout& head, const void* descriptions, UInt32 channels);

    UInt32 channels_;
    std::vector<std::byte> bytes_;
};

/// The tags that a bus of so many channels can be given.
[[nodiscard]] std::vector<AudioChannelLayoutTag> layoutTags(UInt32 channels);

}  // namespace tqplatform
