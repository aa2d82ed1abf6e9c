#pragma once

#include <cstdint>
#include <limits>

/// Truncates toward zero; what does not fit saturates and NaN gives 0.
[[nodiscard]] constexpr std::int32_t truncateToInt32(double value) noexcept {
    constexpr auto kLowest = std::numeric_limits<std::int32_t>::min();
    constexpr auto kHighest = std::numeric_limits<std::int32_t>::max();
    if (!(value > static_cast<double>(kLowest))) {
        return value == value ? kLowest : 0;
    }
    return value < static_cast<double>(kHighest) ? static_cast<std::int32_t>(value) : kHighest;
}
