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

/// Draws and writes the PNG. False with one line in `error` when it cannot be drawn or written.
[[nodiscard]] bool writeDrawing(const Drawing& drawing, const std::string& pngPath,
                                std::string& error);

/// `text` as cairo takes it: bytes that are no UTF-8 and control characters become "?".
[[nodiscard]] std::string printable(const std::string& text);

}  // namespace tqpicture
