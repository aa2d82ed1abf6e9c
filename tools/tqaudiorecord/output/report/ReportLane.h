#pragma once

#include <string>

#include "output/report/ReportPage.h"

namespace tqrecorder {

/// Names, levels, buttons, waveform, spectrogram and sound of one lane. `isHeard` says that it is
/// not muted from the start.
[[nodiscard]] std::string laneMarkup(const Report& report, const ReportLane& lane, bool isHeard);

}  // namespace tqrecorder
