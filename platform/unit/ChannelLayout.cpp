#include "unit/ChannelLayout.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "format/PCMFormat.h"

namespace tqplatform {

namespace {

constexpr std::size_t kHeadSize = offsetof(AudioChannelLayout, mChannelDescriptions);
constexpr UInt32 kCountOfTag = 0xFFFF;  ///< a tag's lower half is its number of channels

AudioChannelLayoutTag usualTag(UInt32 channels) {
    switch (channels) {
        case 1:
            return kAudioChannelLayoutTag_Mono;
        case 2:
            return kAudioChannelLayoutTag_Stereo;
        default:
            return AudioChannelLayoutTag{kAudioChannelLayoutTag_DiscreteInOrder} | channels;
    }
}

AudioChannelLayout usualHead(UInt32 channels) {
    AudioChannelLayout head{};
    head.mChannelLayoutTag = usualTag(channels);
    return head;
}

}  // namespace

ChannelLayout::ChannelLayout(UInt32 channels)
    : ChannelLayout(usualHead(channels), nullptr, channels) {
}

ChannelLayout::ChannelLayout(const AudioChannelLayout& head, const void* descriptions,
                             UInt32 channels)
    : channels_(channels) {
    const std::size_t described = head.mNumberChannelDescriptions * sizeof(AudioChannelDescription);
    bytes_.resize(std::max(sizeof(AudioChannelLayout), kHeadSize + described));
    std::memcpy(bytes_.data(), &head, kHeadSize);
    if (described > 0) {
        std::memcpy(bytes_.data() + kHeadSize, descriptions, described);
    }
}

std::optional<ChannelLayout> ChannelLayout::parse(const void* data, UInt32 size) {
    AudioChannelLayout head{};
    if (size < kHeadSize) {
        return std::nullopt;
    }
    std::memcpy(&head, data, kHeadSize);
    const UInt32 described = head.mNumberChannelDescriptions;
    if (described > kMaximumChannels ||
        size < kHeadSize + described * sizeof(AudioChannelDescription)) {
        return std::nullopt;
    }
    UInt32 channels = head.mChannelLayoutTag & kCountOfTag;
    if (head.mChannelLayoutTag == kAudioChannelLayoutTag_UseChannelDescriptions) {
        channels = described;
    } else if (head.mChannelLayoutTag == kAudioChannelLayoutTag_UseChannelBitmap) {
        channels = static_cast<UInt32>(std::popcount(head.mChannelBitmap));
    }
    if (channels == 0) {
        return std::nullopt;
    }
    return ChannelLayout(head, static_cast<const std::byte*>(data) + kHeadSize, channels);
}

std::vector<AudioChannelDescription> ChannelLayout::descriptions() const {
    AudioChannelLayout head{};
    std::memcpy(&head, bytes_.data(), kHeadSize);
    if (head.mChannelLayoutTag != kAudioChannelLayoutTag_UseChannelDescriptions) {
        return {};
    }
    std::vector<AudioChannelDescription> described(channels_);
    std::memcpy(described.data(), bytes_.data() + kHeadSize,
                channels_ * sizeof(AudioChannelDescription));
    return described;
}

std::vector<AudioChannelLayoutTag> layoutTags(UInt32 channels) {
    std::vector<AudioChannelLayoutTag> tags{usualTag(channels)};
    const AudioChannelLayoutTag discrete =
        AudioChannelLayoutTag{kAudioChannelLayoutTag_DiscreteInOrder} | channels;
    if (tags[0] != discrete) {
        tags.push_back(discrete);
    }
    tags.push_back(kAudioChannelLayoutTag_UseChannelDescriptions);
    tags.push_back(kAudioChannelLayoutTag_UseChannelBitmap);
    return tags;
}

}  // namespace tqplatform
