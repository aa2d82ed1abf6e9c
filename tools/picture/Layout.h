#pragma once

#include <cstddef>
#include <vector>

#include "picture/Picture.h"

namespace tqpicture {

struct Rectangle {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

/// Where one track is drawn: its caption, its waveform and, under it, its spectrogram.
struct Lane {
    int captionBaseline = 0;
    Rectangle waveform;
    Rectangle spectrogram;
};

/// Where everything is drawn. All plots share x and width, so that one second is one place.
struct Layout {
    int width = 0;
    int height = 0;
    int titleBaseline = 0;
    Rectangle eventStrip;  ///< above the lanes; of no height without events
    std::vector<Lane> lanes;
    Rectangle legend;  ///< the colour bar beside the first spectrogram
    int timeAxisY = 0;
};

[[nodiscard]] Layout layOut(std::size_t tracks, const Options& options);

}  // namespace tqpicture
