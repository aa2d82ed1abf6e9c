#pragma once

#include <cstdlib>
#include <string>

namespace tqtest {

/// Programs that are started from here on are not searched for leaks at their end, where they were
/// built for that: the search needs rights or a loader that these programs have not.
inline void startProgramsWithoutLeakCheck() {
    const char* const before = std::getenv("ASAN_OPTIONS");
    const std::string options = std::string(before == nullptr ? "" : before) + ":detect_leaks=0";
    setenv("ASAN_OPTIONS", options.c_str(), 1);
}

}  // namespace tqtest
