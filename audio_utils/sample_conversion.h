#pragma once

#include <cstddef>
#include <cstdint>

namespace korva_audio_utils {

/// [any thread] [real-time safe] Float samples, full scale 1.0, to 16-bit ones: multiplied by
/// 32767, truncated towards zero, saturated to -32767..32767; not-a-number gives 0. The same on
/// every machine. The blocks must not overlap; `count` 0 touches neither.
void ConvertFloatToInt16(const float* source, std::int16_t* target, std::size_t count) noexcept;

/// The same without the machine's vectors: what they are tested against, and what does the rest
/// of a block that no vector fits.
void ConvertFloatToInt16Portable(const float* source, std::int16_t* target,
                                 std::size_t count) noexcept;

}  // namespace korva_audio_utils
