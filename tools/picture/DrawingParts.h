#pragma once

#include <vector>

#include "picture/Axis.h"
#include "picture/Drawing.h"
#include "picture/Pen.h"

// The parts of a drawing, in files of their own.

namespace tqpicture {

/// Where that time is in a plot.
[[nodiscard]] double xOf(const Drawing& drawing, const Rectangle& plot, double seconds);
[[nodiscard]] std::vector<Tick> timeTicks(const Drawing& drawing);

/// Caption, waveform and spectrogram of one track. `range` is the amplitude at the waveform's
/// edges.
void drawLane(Pen& pen, const Drawing& drawing, const DrawnTrack& track, const Lane& lane,
              double range);
/// Levels as pixels, transparent where there are no data. Look at its status.
[[nodiscard]] Surface levelImage(const LevelGrid& levels, double floorDb);
void drawEvents(Pen& pen, const Drawing& drawing);

}  // namespace tqpicture
