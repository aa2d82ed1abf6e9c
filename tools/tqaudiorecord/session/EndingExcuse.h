#pragma once

#include <sys/types.h>

namespace tqrecorder {

/// Tells the crash guard of a process that whatever ends it now is no crash, wherever its threads
/// are at the time. Nothing happens to a process without one.
void excuseEnding(pid_t process);

}  // namespace tqrecorder
