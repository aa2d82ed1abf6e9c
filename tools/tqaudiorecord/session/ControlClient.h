#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "core/Control.h"

namespace tqrecorder {

/// Sends a command to the user's recorder with that process number, or to the only one, and waits
/// for its answer as long as that runs: that of a stop comes when the files are whole. A recorder
/// that is stopped, as with Ctrl-Z, is not waited for; it obeys when it goes on.
[[nodiscard]] ControlAnswer controlRecorder(std::optional<pid_t> recorder,
                                            const ControlCommand& command);

/// Asks all of the user's recorders for what they have, and says who does not answer within two
/// seconds. Not done where there is none.
[[nodiscard]] ControlAnswer listRecorders();

}  // namespace tqrecorder
