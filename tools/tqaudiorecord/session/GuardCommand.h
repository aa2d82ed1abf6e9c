#pragma once

#include <string>

#include "core/Options.h"
#include "ipc/SharedMemory.h"
#include "session/Launch.h"

namespace tqrecorder {

/// The crash guard of a program after it was looked at or changed.
struct GuardReport {
    bool isDone = false;
    std::string error;  ///< one line, when not
    std::string name;   ///< the program that the guard belongs to: a script's is its interpreter
    GuardState state = GuardState::kUnknown;
    int retriesLeft = 0;
    bool usesPlatform = false;
    std::string brokenGuard;  ///< its folder where its files cannot be used

    /// One line for the user.
    [[nodiscard]] std::string text() const;
};

/// Does what `options.action` says with the guard of `options.command`. The guard belongs to the
/// program's own name, so the program is started; it ends before its own code runs. As any launch
/// does, it spends a retry when the launch before died inside the hooks.
[[nodiscard]] GuardReport runGuardCommand(const Options& options,
                                          const std::string& gate = findGate());

}  // namespace tqrecorder
