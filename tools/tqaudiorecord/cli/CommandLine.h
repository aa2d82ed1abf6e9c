#pragma once

#include <string>
#include <vector>

#include "core/Options.h"

namespace tqrecorder {

/// What the arguments came to: something to do, or something to print and an exit code.
struct CommandLine {
    bool proceed = false;
    Options options;     ///< when `proceed`
    int exitCode = 0;    ///< when not
    std::string output;  ///< for standard output
    std::string error;   ///< one line for standard error, without its end
};

/// Arguments without the program's own name. Never throws for what a user can write.
[[nodiscard]] CommandLine parseCommandLine(const std::vector<std::string>& arguments);

}  // namespace tqrecorder
