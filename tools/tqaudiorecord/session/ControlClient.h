#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "core/Control.h"

namespace tqrecorder {

/// Sends a command to the user's recorder with that process number, or to the only one, and waits
/// for its answer: that of a stop comes when the files are whole.
[[nodiscard]] ControlAnswer controlRecorder(std::optional<pid_t> recorder,
                                            const ControlCommand& command);

/// Asks all of the user's recorders for what they have. Not done where there is none.
[[nodiscard]] ControlAnswer listRecorders();

}  // namespace tqrecorder
