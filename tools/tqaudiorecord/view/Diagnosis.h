#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "view/Observer.h"

namespace tqrecorder {

/// Why nothing was heard of one process, one line without its end; empty when something was.
/// `command` is what its program was started as, if it is the recorded command; `seen` what was
/// seen of the process from outside.
[[nodiscard]] std::string whySilent(const ProcessState& state, std::string_view command,
                                    const SeenProcess& seen = {});

/// Why a whole recording is silent, one line per reason; empty when any process was heard.
/// `command` is the program that was asked for.
[[nodiscard]] std::vector<std::string> whySilent(const Observer& observer,
                                                 std::string_view command);

}  // namespace tqrecorder
