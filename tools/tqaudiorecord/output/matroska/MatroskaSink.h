#pragma once

#include "output/ProcessFilesSink.h"
#include "output/matroska/MatroskaRecording.h"

namespace tqrecorder {

/// Writes the mix and the tracks of every process to one Matroska file.
using MatroskaSink = ProcessFilesSink<MatroskaRecording>;

}  // namespace tqrecorder
