#pragma once

#include <cstddef>
#include <span>

namespace tq::bridges {

/// [any thread] [real-time safe] One plane a channel becomes frames: the first `frames` samples of
/// each plane, of `bytesPerSample` (1, 2, 3, 4 or 8), channel by channel within a frame. A null
/// plane reads as bytes of 0. Memory needs no alignment and does not overlap.
void interleave(std::span<const void* const> planes, unsigned bytesPerSample, std::size_t frames,
                void* interleaved) noexcept;

/// [any thread] [real-time safe] The way back. What belongs to a null plane goes nowhere.
void deinterleave(const void* interleaved, unsigned bytesPerSample, std::size_t frames,
                  std::span<void* const> planes) noexcept;

}  // namespace tq::bridges
