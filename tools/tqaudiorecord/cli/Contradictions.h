#pragma once

#include <string>

#include "core/Options.h"

namespace tqrecorder {

/// Why options that are right by themselves make no sense together, for the user; empty when they
/// do. `areTimesGiven` says that --attack or --release was.
[[nodiscard]] std::string contradictionIn(const Options& options, bool areTimesGiven);

}  // namespace tqrecorder
