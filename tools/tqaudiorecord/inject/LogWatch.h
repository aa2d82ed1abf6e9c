#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "ipc/SharedMemory.h"

namespace tqrecorder {

/// Understands the lines of the library's log that tell what becomes of the host's units. Called
/// for one line at a time, on any thread; allocates nothing.
class LogWatch {
  public:
    /// Counts what the line says into the page. True when a unit has just been made.
    bool take(const char* line, SharedPage& page);
    /// Whether a line says that a unit has just been made.
    [[nodiscard]] static bool isNewUnit(const char* line);

  private:
    struct Unit {
        std::uint64_t handle = 0;  ///< of the unit, or of its graph
        std::uint32_t number = 0;
    };
    [[nodiscard]] std::uint32_t numberOf(std::uint64_t handle, bool isGraph);
    void forget(std::uint64_t handle);

    std::array<Unit, 64> units_{};
    std::uint32_t ordinal_ = 0;
    bool isStarting_ =
        false;  ///< the last start line's unit may turn out to have its microphone on
};

}  // namespace tqrecorder
