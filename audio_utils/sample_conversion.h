#pragma once

#include <cstddef>
#include <cstdint>

#include "common/RealTime.h"

namespace korva_audio_utils {

/// [any thread] Real-time safe. Float samples, full scale 1.0, to 16-bit ones: multiplied by
/// 32767, truncated towards zero, saturated to -32767..32767; not-a-number gives 0. The same on
/// every machine. The blocks must not overlap; `count` 0 touches neither.
void ConvertFloatToInt16(const float* source, std::int16_t* target,
                         std::size_t count) noexcept TQ_NONBLOCKING;

/// [any thread] Real-time safe. The same with the vectors that every processor of the architecture
/// has, and without vectors: what runs on older processors and at the end of a block. Declared for
/// tests and benchmarks.
void ConvertFloatToInt16Baseline(const float* source, std::int16_t* target,
                                 std::size_t count) noexcept;
void ConvertFloatToInt16Portable(const float* source, std::int16_t* target,
                                 std::size_t count) noexcept;

}  // namespace korva_audio_utils
