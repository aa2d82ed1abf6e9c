#pragma once

#include "ipc/SharedMemory.h"
#include "ipc/TapSettings.h"

namespace tqrecorder {

/// The crash guard of the program that this code runs in.
struct GuardStatus {
    GuardState state = GuardState::kUnknown;
    int retriesLeft = 0;
    bool wasArmed = false;  ///< when the program was loaded
};

/// [host thread] Asks the library.
[[nodiscard]] GuardStatus guardStatus();
/// Whether a recording may arm it by itself: not over the program's own word, and not when the
/// program has died in its hooks too often.
[[nodiscard]] constexpr bool mayArm(GuardState state) {
    return state == GuardState::kNeverEnabled || state == GuardState::kNotWanted;
}
/// [host thread] The program's name, under which the platform keeps its caches: its file's, without
/// folders.
[[nodiscard]] std::string programName();
/// [host thread] What a process says of itself when it connects.
[[nodiscard]] Hello helloWith(const GuardStatus& status, bool usesPlatform);

}  // namespace tqrecorder
