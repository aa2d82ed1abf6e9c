#pragma once

#include <string>
#include <vector>

#include "picture/Layout.h"
#include "picture/TrackAnalysis.h"

namespace tqpicture {

/// One analysed track with the words above its lane.
struct DrawnTrack {
    std::string name;
    TrackAnalysis analysis;
};

/// Everything that a picture shows. The references outlive it.
struct Drawing {
    const Options& options;
    const Layout& layout;
    const std::vector<DrawnTrack>& tracks;
    double axisSeconds = 1;
    double topHertz = 22050;
};

/// The frequency axis of one spectrogram of that many rows.
[[nodiscard]] FrequencyScale frequencyScale(const Options& options, double topHertz, int rows);

/// Draws the PNG. False with one line in `error` when it cannot be drawn.
[[nodiscard]] bool draw(const Drawing& drawing, Png& png, std::string& error);

/// An amplitude that all waveforms of a picture share as their scale, so that loud and quiet tracks
/// compare; quiet recordings get a narrower one. `peak` is the highest of all.
[[nodiscard]] double amplitudeRange(double peak);

/// `text` as cairo takes it: bytes that are no UTF-8 and control characters become "?".
[[nodiscard]] std::string printable(const std::string& text);

}  // namespace tqpicture
