#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "common/AlignedBytes.h"
#include "common/AudioView.h"

namespace tqcommon {

/// Owns float samples, one plane per channel, in one block; every plane begins on a cache line of
/// its own. Silent at first. What uses the samples is handed a view.
class Planes {
  public:
    /// [host thread] Throws std::bad_alloc.
    Planes(std::uint32_t channels, std::uint32_t frames)
        : channels_(channels),
          frames_(frames),
          stride_(AlignedBytes::wholeLines(frames * sizeof(float)) / sizeof(float)),
          bytes_(stride_ * channels * sizeof(float)),
          samples_(reinterpret_cast<float*>(bytes_.data())) {
        std::uninitialized_fill_n(samples_, stride_ * channels, 0.0F);
    }
    Planes(const Planes&) = delete;
    Planes& operator=(const Planes&) = delete;

    [[nodiscard]] std::uint32_t channels() const noexcept { return channels_; }
    [[nodiscard]] AudioView view() noexcept { return {samples_, channels_, frames_, stride()}; }
    /// The first `frames` frames, up to as many as there are.
    [[nodiscard]] AudioView view(std::uint32_t frames) noexcept { return view().slice(0, frames); }

  private:
    [[nodiscard]] std::ptrdiff_t stride() const noexcept {
        return static_cast<std::ptrdiff_t>(stride_);
    }

    std::uint32_t channels_;
    std::uint32_t frames_;
    std::size_t stride_;  ///< samples from one plane to the next
    AlignedBytes bytes_;
    float* samples_;  ///< lie in bytes_
};

}  // namespace tqcommon
