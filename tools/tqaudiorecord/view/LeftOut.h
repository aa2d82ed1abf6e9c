#pragma once

#include <string>
#include <vector>

#include "view/Observer.h"

namespace tqrecorder {

/// Which units of a process played without being recorded and why, one line without its end for
/// each reason; empty when all were recorded.
[[nodiscard]] std::vector<std::string> leftOutLines(const ProcessState& state);

}  // namespace tqrecorder
