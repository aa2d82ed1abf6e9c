#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <optional>

#include "common/AudioView.h"

namespace tqplatform {

enum class SampleType { int8, int16, int24, int32, uint8, uint16, fixed824, float32, float64 };

/// Most channels of any bus or device.
inline constexpr UInt32 kMaximumChannels = 64;

/// A linear PCM description that was checked: what the converters work from.
struct PCMFormat {
    SampleType type;
    bool bigEndian;
    bool interleaved;
    UInt32 channels;       ///< 1 to kMaximumChannels
    UInt32 bytesPerFrame;  ///< of one buffer, so of one channel when not interleaved
    Float64 sampleRate;    ///< Hz; 0 is legal here ("not known yet")

    /// Nothing when the description is malformed or not supported.
    [[nodiscard]] static std::optional<PCMFormat> parse(
        const AudioStreamBasicDescription& description);
    /// Whether silence is the middle of the range and not all bits clear.
    [[nodiscard]] bool isUnsigned() const noexcept {
        return type == SampleType::uint8 || type == SampleType::uint16;
    }
    /// Buffers in a list of this format: 1 when interleaved, else one per channel.
    [[nodiscard]] UInt32 bufferCount() const noexcept { return interleaved ? 1 : channels; }
};

/// The platform's usual float format: 32-bit, not interleaved, packed.
[[nodiscard]] AudioStreamBasicDescription floatDescription(Float64 sampleRate, UInt32 channels);

// Views below are planar and have as many channels as the format.

/// [any thread] [real-time safe] Fills the planes from `list` (whose buffers hold at least as many
/// frames), full scale 1.0.
void toFloat(const AudioBufferList& list, const PCMFormat& format,
             const tqcommon::AudioView& planes) noexcept TQ_NONBLOCKING;

/// [any thread] [real-time safe] Writes the planes into the buffers of `list`, rounded to nearest
/// and saturated; a NaN becomes 0.
void fromFloat(const tqcommon::ConstAudioView& planes, const PCMFormat& format,
               AudioBufferList& list) noexcept TQ_NONBLOCKING;

/// [any thread] [real-time safe] Writes silence to whole samples of one buffer's memory.
void writeSilence(const PCMFormat& format, void* data, UInt32 bytes) noexcept TQ_NONBLOCKING;

/// [any thread] [real-time safe] Copies planes of one channel count to another: mono is spread, a
/// fold-down to mono averages, otherwise channels beyond the source become silent. A plane may be
/// the same on both sides.
void mapChannels(const tqcommon::ConstAudioView& source,
                 const tqcommon::AudioView& destination) noexcept TQ_NONBLOCKING;

}  // namespace tqplatform
