#pragma once

#include <AudioToolbox/AudioToolbox.h>

// Stream descriptions of linear PCM as hosts write them.

namespace stream_formats {

inline AudioStreamBasicDescription linear(Float64 rate, UInt32 flags, UInt32 bits, UInt32 channels,
                                          UInt32 channelsPerBuffer) {
    const UInt32 bytes = bits / 8 * channelsPerBuffer;
    return {rate, kAudioFormatLinearPCM, flags, bytes, 1, bytes, channels, bits, 0};
}
inline AudioStreamBasicDescription floatInterleaved(Float64 rate, UInt32 channels) {
    return linear(rate, kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked, 32, channels, channels);
}
inline AudioStreamBasicDescription floatPlanar(Float64 rate, UInt32 channels) {
    return linear(
        rate, kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | kAudioFormatFlagIsNonInterleaved,
        32, channels, 1);
}
inline AudioStreamBasicDescription int16Interleaved(Float64 rate, UInt32 channels) {
    return linear(rate, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked, 16, channels,
                  channels);
}
inline AudioStreamBasicDescription int32Interleaved(Float64 rate, UInt32 channels) {
    return linear(rate, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked, 32, channels,
                  channels);
}

}  // namespace stream_formats
