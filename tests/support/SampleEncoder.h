#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "StreamFormats.h"

// Samples of every linear PCM format that the platform plays, written by hand.

namespace sample_encoder {

struct NamedFormat {
    std::string name;
    AudioStreamBasicDescription format;
};

inline void storeBytes(std::uint64_t bits, std::size_t bytes, bool bigEndian, std::byte* out) {
    for (std::size_t i = 0; i < bytes; ++i) {
        out[bigEndian ? bytes - 1 - i : i] = static_cast<std::byte>(bits >> (8 * i) & 0xFF);
    }
}

/// One sample of -1 to just under 1.
inline void encode(const AudioStreamBasicDescription& format, double value, std::byte* out) {
    const std::size_t bytes = format.mBitsPerChannel / 8;
    const bool isBig = (format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    if ((format.mFormatFlags & kAudioFormatFlagIsFloat) != 0) {
        storeBytes(bytes == 4 ? std::bit_cast<std::uint32_t>(static_cast<float>(value))
                              : std::bit_cast<std::uint64_t>(value),
                   bytes, isBig, out);
        return;
    }
    const UInt32 fraction = (format.mFormatFlags & kLinearPCMFormatFlagsSampleFractionMask) >>
                            kLinearPCMFormatFlagsSampleFractionShift;
    const double scale =
        std::ldexp(1.0, static_cast<int>(fraction != 0 ? fraction : format.mBitsPerChannel - 1));
    storeBytes(static_cast<std::uint64_t>(std::llround(value * scale)), bytes, isBig, out);
}

/// Fills every sample of the list; `valueOf` is asked for each channel.
template <class ValueOf>
void fill(const AudioStreamBasicDescription& format, UInt32 frames, AudioBufferList& list,
          ValueOf valueOf) {
    const std::size_t bytes = format.mBitsPerChannel / 8;
    for (UInt32 i = 0; i < list.mNumberBuffers; ++i) {
        const AudioBuffer& buffer = list.mBuffers[i];
        auto* out = static_cast<std::byte*>(buffer.mData);
        for (UInt32 frame = 0; frame < frames; ++frame) {
            for (UInt32 c = 0; c < buffer.mNumberChannels; ++c, out += bytes) {
                encode(format, valueOf(i + c), out);
            }
        }
    }
}

/// Mono and stereo, interleaved and not, of both endiannesses; native floats of 32 bits only.
inline std::vector<NamedFormat> formatsThatMix(Float64 rate) {
    struct Kind {
        const char* name;
        UInt32 flags;
        UInt32 bits;
    };
    constexpr UInt32 kInteger = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    constexpr UInt32 kBig = kAudioFormatFlagIsBigEndian;
    constexpr std::array kKinds{
        Kind{"int8", kInteger, 8},
        Kind{"int16", kInteger, 16},
        Kind{"int16be", kInteger | kBig, 16},
        Kind{"int24", kInteger, 24},
        Kind{"int24be", kInteger | kBig, 24},
        Kind{"int32", kInteger, 32},
        Kind{"int32be", kInteger | kBig, 32},
        Kind{"fixed824", kInteger | 24U << kLinearPCMFormatFlagsSampleFractionShift, 32},
        Kind{"float32", kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked, 32}};
    std::vector<NamedFormat> formats;
    for (const Kind& kind : kKinds) {
        for (const UInt32 channels : {1U, 2U}) {
            for (const bool planar : {false, true}) {
                const UInt32 flags =
                    kind.flags | (planar ? UInt32{kAudioFormatFlagIsNonInterleaved} : 0U);
                formats.push_back({std::string(kind.name) + (channels == 1 ? "_mono" : "_stereo") +
                                       (planar ? "_planar" : ""),
                                   stream_formats::linear(rate, flags, kind.bits, channels,
                                                          planar ? 1 : channels)});
            }
        }
    }
    return formats;
}

}  // namespace sample_encoder
