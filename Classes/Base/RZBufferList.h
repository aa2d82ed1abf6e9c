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
