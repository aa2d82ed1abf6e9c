#pragma once

#include <chrono>

namespace tqplatform {

/// While a device is open it is looked after so often.
inline constexpr std::chrono::milliseconds kLookStep{250};
/// Looks that a sink or a source gets to wake up, which takes seconds: three.
inline constexpr int kWakingLooks = 12;

}  // namespace tqplatform
