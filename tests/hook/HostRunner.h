#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/ProgramRunner.h"

using HostRun = tqtest::ProgramEnd;

/// The file of a host program or library, by its short name.
inline std::string hostProgram(const std::string& name) {
    return std::string(HOOK_HOSTS) + "/hook_" + name;
}
inline std::string hostLibrary(const std::string& name) {
    return std::string(HOOK_HOSTS) + "/libhook_" + name + ".so";
}

/// Runs a host to its end with these variables besides the test's own.
inline HostRun runHost(const std::vector<std::string>& command,
                       std::map<std::string, std::string> variables = {}) {
    variables["LD_LIBRARY_PATH"] = HOOK_HOSTS;
    return tqtest::runProgram({.arguments = command, .environment = std::move(variables)});
}
