#pragma once

#include "ipc/SharedMemory.h"

namespace tqrecorder {

/// The crash guard of the program that this code runs in.
struct GuardStatus {
    GuardState state = GuardState::kUnknown;
    int retriesLeft = 0;
};

/// Reads it. Any thread but render threads: opens a file.
[[nodiscard]] GuardStatus guardStatus();
/// Wants the hooks, with a full budget of retries, from the next launch on. The library's code. To
/// be called only in a launch that ends right after: it says that this run's hooks have proved
/// themselves.
[[nodiscard]] int armGuard();
/// Wants no hook any more, under whatever id it was wanted. The library's code.
[[nodiscard]] int disarmGuard();
/// Whether a recording may arm it by itself: not over the program's own word, and not when the
/// program has died in its hooks too often.
[[nodiscard]] constexpr bool mayArm(GuardState state) {
    return state == GuardState::kNeverEnabled || state == GuardState::kNotWanted;
}

}  // namespace tqrecorder
