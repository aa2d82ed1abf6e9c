#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstring>

/// [real-time safe] Zeroes what a buffer says it holds; one without memory is passed over.
inline void fillSilence(const AudioBuffer& buffer) noexcept {
    if (buffer.mData != nullptr) {
        std::memset(buffer.mData, 0, buffer.mDataByteSize);
    }
}

/// [real-time safe] The same for every buffer of a list.
inline void fillSilence(const AudioBufferList& list) noexcept {
    for (UInt32 i = 0; i < list.mNumberBuffers; ++i) {
        fillSilence(list.mBuffers[i]);
    }
}
