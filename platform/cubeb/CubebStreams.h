#pragma once

#include <cubeb/cubeb.h>

#include <chrono>

#include "device/HeardDevice.h"

// What the streams of CubebDevice, to speakers and from microphones, have in common.

namespace tqcubeb {

inline constexpr const char* kName = "TQAudioRecord platform";
inline constexpr UInt32 kFewestFrames = 128;
inline constexpr UInt32 kMaximumFrames = 4096;
/// Servers ask again when about half of what they hold is played.
inline constexpr UInt32 kRequestsInHand = 2;
/// What the microphone brings at a time: as much as servers ask for at a time.
inline constexpr UInt32 kRequestsInLatency = 4;
/// Of a microphone alone: a quarter of it comes at a time, which is soon enough for all but music.
inline constexpr UInt32 kHeardAloneFrames = 2048;
inline constexpr Float64 kNsPerSecond = 1e9;

/// The platform's host time.
inline UInt64 nowNs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<UInt64>(std::chrono::nanoseconds(now).count());
}

inline cubeb_stream_params paramsAt(UInt32 sampleRate, UInt32 channels) {
    return {CUBEB_SAMPLE_FLOAT32NE, sampleRate, channels, CUBEB_LAYOUT_UNDEFINED,
            CUBEB_STREAM_PREF_NONE};
}

}  // namespace tqcubeb
