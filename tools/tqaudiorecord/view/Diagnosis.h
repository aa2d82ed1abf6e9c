#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "view/Observer.h"

namespace tqrecorder {

/// That a command was ended by that signal; one line.
[[nodiscard]] std::string endedBy(std::string_view command, int signal);

/// Why a whole recording is silent, one line per reason; empty when any process was heard.
/// `command` is the program that was asked for, `endSignal` the signal that ended it, 0 for none.
[[nodiscard]] std::vector<std::string> whySilent(const Observer& observer, std::string_view command,
                                                 int endSignal = 0);

}  // namespace tqrecorder
