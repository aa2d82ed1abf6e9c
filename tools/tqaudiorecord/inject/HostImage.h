#pragma once

namespace tqrecorder {

/// Whether the program or a library of it, other than ours, was linked against the platform.
[[nodiscard]] bool usesPlatform();

/// Starts this program again in the same process, with the same arguments, as
/// kRestartVariable says; returns only when that is not possible.
void restartProgram(char** arguments);
/// Whether this is the program that restartProgram() started. Takes the mark back.
[[nodiscard]] bool isRestarted();

}  // namespace tqrecorder
