#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "core/Records.h"

namespace tqrecorder {

/// Turns blocks of one format into floats of full scale 1. Samples that are no numbers become 0.
class Floats {
  public:
    explicit Floats(const BlockFormat& format);

    /// False for a format that no library states.
    [[nodiscard]] bool isKnown() const { return read_ != nullptr; }
    /// Of whole frames; valid until the next call.
    [[nodiscard]] std::span<const float> of(std::span<const std::byte> frames);

  private:
    using Read = float (*)(const std::byte*);

    Read read_ = nullptr;
    std::size_t step_ = 1;
    std::vector<float> samples_;
};

}  // namespace tqrecorder
