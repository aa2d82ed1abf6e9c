#pragma once

#include <map>
#include <string>
#include <vector>

/// What a host program said and how it ended.
struct HostRun {
    int status = -1;  ///< exit code, or 128 + the signal that ended it
    std::string text;

    /// The value of a "name=value" line.
    [[nodiscard]] std::string operator[](const std::string& name) const;
};

/// Runs a program to its end with these variables besides the test's own.
[[nodiscard]] HostRun runHost(const std::vector<std::string>& command,
                              const std::map<std::string, std::string>& variables);
