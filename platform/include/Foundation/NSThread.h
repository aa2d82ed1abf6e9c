#pragma once

#include <string>

#include "NSObjCRuntime.h"

/// [any thread] The calling thread's name. The kernel keeps 15 characters, so a name set here is
/// kept whole beside it; a thread named otherwise answers the kernel's.
class TQ_PLATFORM_EXPORT NSThread {
  public:
    [[nodiscard]] static std::string currentThreadName();
    static void setCurrentThreadName(const std::string& name);
};
