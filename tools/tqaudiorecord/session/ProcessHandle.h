#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include "common/Descriptor.h"

namespace tqrecorder {

// The C library's own declarations of these cannot be linked from C++ everywhere.

/// Stands for a process whatever becomes of its number, and is readable once it has ended.
/// Nothing when it is gone, or the kernel is too old.
[[nodiscard]] inline tqcommon::Descriptor openProcess(pid_t pid) {
    return tqcommon::Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

inline void signalProcess(const tqcommon::Descriptor& process, int number) {
    syscall(SYS_pidfd_send_signal, process.get(), number, nullptr, 0);
}

}  // namespace tqrecorder
