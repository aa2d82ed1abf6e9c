#pragma once

#include <CoreMedia/CMTime.h>

// The little arithmetic that sample buffers need. Invalid and infinite times go through it as one
// expects; a result beyond 64 bits is infinite.

namespace tqplatform {

/// Valid, finite and definite: value / timescale means something.
[[nodiscard]] bool isNumeric(const CMTime& time) noexcept;

/// `count` times as long; `count` is not negative.
[[nodiscard]] CMTime multiplied(const CMTime& time, CMTimeValue count) noexcept;

/// The sum in the epoch of `left`, in a timescale that holds both exactly, else rounded to the
/// finer one and flagged so.
[[nodiscard]] CMTime added(const CMTime& left, const CMTime& right) noexcept;

}  // namespace tqplatform
