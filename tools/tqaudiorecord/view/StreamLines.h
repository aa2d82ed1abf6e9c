#pragma once

#include <string>
#include <vector>

#include "view/Observer.h"

namespace tqrecorder {

/// Which native streams of a process were not recorded, why and what to do about it, one line
/// without its end for each reason.
[[nodiscard]] std::vector<std::string> unrecordedStreamLines(const ProcessState& state);

/// What the program had written, and of which streams, where none of it was played; empty where
/// some was.
[[nodiscard]] std::string framesNeverPlayed(const ProcessState& state);

/// Why streams that might have been heard were not: they could not be opened, nothing was written,
/// or they were paused. For a process of which nothing was heard.
[[nodiscard]] std::vector<std::string> silentStreamLines(const ProcessState& state);

/// What became of the frames of those that were, one line each for the first of them.
[[nodiscard]] std::vector<std::string> streamFrameLines(const ProcessState& state);

}  // namespace tqrecorder
