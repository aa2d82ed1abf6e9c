#pragma once

#include <chrono>

namespace game {

/// Turns SIGINT and SIGTERM into an orderly end. One per process; the handlers stay to the end.
class StopSignal {
  public:
    /// Throws std::system_error when the handlers cannot be installed.
    StopSignal();
    /// Waits until `deadline`; true as soon as a signal came (and ever after).
    [[nodiscard]] bool waitUntil(std::chrono::steady_clock::time_point deadline) const;
};

}  // namespace game
