#include "format/PCMFormat.h"

#include <bit>
#include <cmath>

namespace tqplatform {

namespace {

constexpr Float64 kMaximumRate = 1e6;
constexpr UInt32 kFixed824Fraction = 24;

/// All flags that say something here; any other bit could change the meaning of the samples.
constexpr AudioFormatFlags kKnownFlags =
    kAudioFormatFlagIsFloat | kAudioFormatFlagIsBigEndian | kAudioFormatFlagIsSignedInteger |
    kAudioFormatFlagIsPacked | kAudioFormatFlagIsAlignedHigh | kAudioFormatFlagIsNonInterleaved |
    kAudioFormatFlagIsNonMixable | kLinearPCMFormatFlagsSampleFractionMask |
    kAudioFormatFlagsAreAllClear;

std::optional<SampleType> sampleType(AudioFormatFlags flags, UInt32 bits) {
    const UInt32 fraction = (flags & kLinearPCMFormatFlagsSampleFractionMask) >>
                            kLinearPCMFormatFlagsSampleFractionShift;
    const bool isFloat = (flags & kAudioFormatFlagIsFloat) != 0;
    const bool isSigned = (flags & kAudioFormatFlagIsSignedInteger) != 0;
    if (isFloat && isSigned) {
        return std::nullopt;
    }
    if (isFloat) {
        if (fraction != 0) {
            return std::nullopt;
        }
        switch (bits) {
            case 32:
                return SampleType::float32;
            case 64:
                return SampleType::float64;
            default:
                return std::nullopt;
        }
    }
    if (!isSigned) {
        // Bytes and words of old files; nothing wider is ever unsigned.
        if (fraction != 0 || (bits != 8 && bits != 16)) {
            return std::nullopt;
        }
        return bits == 8 ? SampleType::uint8 : SampleType::uint16;
    }
    if (fraction != 0) {
        return bits == 32 && fraction == kFixed824Fraction ? std::optional(SampleType::fixed824)
                                                           : std::nullopt;
    }
    switch (bits) {
        case 8:
            return SampleType::int8;
        case 16:
            return SampleType::int16;
        case 24:
            return SampleType::int24;
        case 32:
            return SampleType::int32;
        default:
            return std::nullopt;
    }
}

}  // namespace

std::optional<PCMFormat> PCMFormat::parse(const AudioStreamBasicDescription& description) {
    const AudioFormatFlags flags = description.mFormatFlags;
    if (description.mFormatID != kAudioFormatLinearPCM || (flags & ~kKnownFlags) != 0) {
        return std::nullopt;
    }
    const Float64 rate = description.mSampleRate;
    if (!std::isfinite(rate) || rate < 0 || rate > kMaximumRate) {
        return std::nullopt;
    }
    const UInt32 channels = description.mChannelsPerFrame;
    if (channels < 1 || channels > kMaximumChannels) {
        return std::nullopt;
    }
    const auto type = sampleType(flags, description.mBitsPerChannel);
    if (!type) {
        return std::nullopt;
    }
    // Only samples whose bits fill their bytes are read. For these the packed and the
    // aligned-high flags have nothing to say, present or not.
    const bool interleaved = (flags & kAudioFormatFlagIsNonInterleaved) == 0;
    const UInt32 bytesPerFrame = description.mBitsPerChannel / 8 * (interleaved ? channels : 1);
    if (description.mFramesPerPacket != 1 || description.mBytesPerFrame != bytesPerFrame ||
        description.mBytesPerPacket != bytesPerFrame) {
        return std::nullopt;
    }
    const bool isByte = *type == SampleType::int8 || *type == SampleType::uint8;
    const bool bigEndian = isByte ? std::endian::native == std::endian::big
                                  : (flags & kAudioFormatFlagIsBigEndian) != 0;
    return PCMFormat{*type, bigEndian, interleaved, channels, bytesPerFrame, rate};
}

AudioStreamBasicDescription floatDescription(Float64 sampleRate, UInt32 channels) {
    AudioStreamBasicDescription description{};
    description.mSampleRate = sampleRate;
    description.mFormatID = kAudioFormatLinearPCM;
    description.mFormatFlags =
        kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | kAudioFormatFlagIsNonInterleaved;
    description.mBytesPerPacket = sizeof(Float32);
    description.mFramesPerPacket = 1;
    description.mBytesPerFrame = sizeof(Float32);
    description.mChannelsPerFrame = channels;
    description.mBitsPerChannel = 8 * sizeof(Float32);
    return description;
}

}  // namespace tqplatform
