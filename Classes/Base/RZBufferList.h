#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstring>

/// [any thread] Real-time safe. Zeroes the mDataByteSize bytes of a buffer that has memory.
inline void fillSilence(const AudioBuffer& buffer) noexcept {
    if (buffer.mData != nullptr) {
        std::memset(buffer.mData, 0, buffer.mDataByteSize);
    }
}

/// [any thread] Real-time safe. The same for every buffer of a list.
inline void fillSilence(const AudioBufferList& list) noexcept {
    for (UInt32 i = 0; i < list.mNumberBuffers; ++i) {
        fillSilence(list.mBuffers[i]);
    }
}

/// [any thread] Real-time safe. Whether cleared bits are no silence in a format: unsigned integers.
inline bool isUnsigned(const AudioStreamBasicDescription& format) noexcept {
    return (format.mFormatFlags & (kAudioFormatFlagIsFloat | kAudioFormatFlagIsSignedInteger)) == 0;
}

/// [any thread] Real-time safe. Silence in a format: cleared bits, or the middle of the range.
inline void fillSilence(const AudioBufferList& list,
                        const AudioStreamBasicDescription& format) noexcept {
    fillSilence(list);
    if (!isUnsigned(format)) {
        return;
    }
    const UInt32 bytes = format.mBitsPerChannel / 8;
    const bool isBigEndian = (format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    const UInt32 highest = isBigEndian ? 0 : bytes - 1;
    for (UInt32 i = 0; bytes > 0 && i < list.mNumberBuffers; ++i) {
        const AudioBuffer& buffer = list.mBuffers[i];
        auto* const data = static_cast<unsigned char*>(buffer.mData);
        for (UInt32 at = highest; data != nullptr && at < buffer.mDataByteSize; at += bytes) {
            data[at] = 0x80;
        }
    }
}
