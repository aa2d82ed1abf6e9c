#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include "common/Descriptor.h"

namespace tqrecorder {

// System calls made directly: the C library 2.36 declares them so that C++ cannot link them.

/// A descriptor of that process, which stays the same process when its number is used again, and
/// becomes readable when it ends. Empty when the process is gone or the kernel is older than 5.3.
[[nodiscard]] inline tqcommon::Descriptor openProcess(pid_t pid) {
    return tqcommon::Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

inline void signalProcess(const tqcommon::Descriptor& process, int number) {
    syscall(SYS_pidfd_send_signal, process.get(), number, nullptr, 0);
}

}  // namespace tqrecorder
