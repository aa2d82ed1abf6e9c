#pragma once

#include <cstddef>

#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

/// Converts that many samples (channels times frames). Memory needs no alignment. `from` and `to`
/// do not overlap, or are the same when both samples have the same size. Real-time safe.
using ConvertSamples = void (*)(const void* from, void* to, std::size_t samples) noexcept;

/// [any thread] From the program's samples to those of unitSampleOf(); exact but for 64-bit float,
/// which is rounded to 32 bits. Null for what is not PCM.
[[nodiscard]] ConvertSamples toUnit(NativeSample sample) noexcept;

/// [any thread] The way back. What toUnit() made comes out as it was, except that the unused byte
/// of four is filled from the sign (signed) or with 0 (unsigned). Samples that were changed in
/// between lose the bits that the program's sample has no room for. Null for what is not PCM.
[[nodiscard]] ConvertSamples fromUnit(NativeSample sample) noexcept;

}  // namespace tq::bridges
