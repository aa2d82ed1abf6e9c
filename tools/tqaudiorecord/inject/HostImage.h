#pragma once

#include "ipc/TapSettings.h"

namespace tqrecorder {

/// Whether the program or a library of it, other than ours, was linked against the platform.
[[nodiscard]] bool usesPlatform();
/// Whether this process may ever play: the program or a library of it is linked against the
/// platform or a library for sound, or holds the name of one, to open it later. Looks no further
/// than 64 MiB, and in no library of the system.
[[nodiscard]] bool mayHaveSound();
/// Whether it runs programs that are no files of this machine: an interpreter or a virtual machine,
/// whose program may bring a library for sound at any time.
[[nodiscard]] bool isInterpreter();
/// Whether it is a sound server or a bus.
[[nodiscard]] bool isServing();

/// Whether this process is COMMAND itself. An orphan that COMMAND leaves behind may have the
/// recorder for a parent as well, so COMMAND writes its number where all that it starts find it.
[[nodiscard]] bool isCommand(const TapSettings& settings);

/// Starts this program again in the same process, with the same arguments and under the same name,
/// as kRestartVariable says; returns only when that is not possible.
void restartProgram(char** arguments);
/// Whether this is the program that restartProgram() started. Takes the mark back, and gives the
/// process its name.
[[nodiscard]] bool isRestarted();

}  // namespace tqrecorder
