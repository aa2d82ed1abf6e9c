#pragma once

#include <optional>

namespace tqtest {

/// What main() of a test program does first. Singletons of the library start fresh with a process,
/// and some of its states last as long as the process, so each case has one of its own: ctest
/// starts it so, and of a program that is run whole this does. Answers the exit code then. Nothing
/// where a single case was asked for, or the list of them: that is this process's to run, for a
/// debugger too.
[[nodiscard]] std::optional<int> runEachCase(int argc, char** argv);

}  // namespace tqtest
