#pragma once

#include <string>
#include <vector>

#include "cli/CommandLine.h"

namespace tqrecorder {

/// What is said of arguments that make no sense.
[[nodiscard]] CommandLine wrongUsage(std::string problem);

/// What is asked for without a COMMAND to be recorded. `words` are what is behind the options, with
/// the command's own word in front but for `--list`, which has none.
[[nodiscard]] CommandLine listCommand(const std::vector<std::string>& words);
[[nodiscard]] CommandLine guardCommand(const std::vector<std::string>& words);
[[nodiscard]] CommandLine controlCommand(std::vector<std::string> words);

}  // namespace tqrecorder
