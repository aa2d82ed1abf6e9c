#pragma once

#include <string>
#include <vector>

#include "core/Frames.h"

namespace tqrecorder {

/// What became of the frames of each track that has any: one line without its end for each.
[[nodiscard]] std::vector<std::string> frameLines(const FramesOfTracks& tracks);

}  // namespace tqrecorder
