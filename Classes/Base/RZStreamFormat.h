#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <tuple>

/// [any thread] Real-time safe. Whether two descriptions say the same in every field that says
/// something.
[[nodiscard]] inline bool RZIsSameFormat(const AudioStreamBasicDescription& a,
                                         const AudioStreamBasicDescription& b) noexcept {
    const auto fieldsOf = [](const AudioStreamBasicDescription& desc) {
        return std::tie(desc.mSampleRate, desc.mFormatID, desc.mFormatFlags, desc.mBytesPerPacket,
                        desc.mFramesPerPacket, desc.mBytesPerFrame, desc.mChannelsPerFrame,
                        desc.mBitsPerChannel);
    };
    return fieldsOf(a) == fieldsOf(b);
}
