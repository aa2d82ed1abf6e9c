#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "core/Records.h"

namespace tqrecorder {

/// Peak and RMS of all channels together; full scale is 1. Samples that are no numbers count as 0.
class Level {
  public:
    void add(std::span<const std::byte> frames, const BlockFormat& format);
    void add(const Level& other);

    [[nodiscard]] double peak() const { return peak_; }
    [[nodiscard]] double rms() const;
    [[nodiscard]] std::uint64_t samples() const { return samples_; }

  private:
    double peak_ = 0;
    double squares_ = 0;
    std::uint64_t samples_ = 0;
};

/// "-12.3", "-inf" for silence.
[[nodiscard]] std::string decibelText(double amplitude);

}  // namespace tqrecorder
