#pragma once

#include <map>
#include <string>
#include <vector>

/// What a host program said.
struct HostRun {
    int status = -1;  ///< exit code, or 128 + the signal that ended it
    std::string text;
    std::map<std::string, std::string> values;  ///< from its "name=value" lines

    [[nodiscard]] std::string operator[](const std::string& name) const {
        const auto found = values.find(name);
        return found != values.end() ? found->second : "(not said)";
    }
};

/// The file of a host program or library, by its short name.
[[nodiscard]] std::string hostProgram(const std::string& name);
[[nodiscard]] std::string hostLibrary(const std::string& name);

/// Runs a host to its end with these variables besides the test's own.
[[nodiscard]] HostRun runHost(const std::vector<std::string>& command,
                              const std::map<std::string, std::string>& variables = {});
