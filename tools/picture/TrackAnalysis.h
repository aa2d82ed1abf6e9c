#pragma once

#include <string>
#include <vector>

#include "picture/Envelope.h"
#include "picture/Picture.h"
#include "picture/Spectrogram.h"

namespace tqpicture {

/// What a file says about itself before it is read.
struct TrackInfo {
    int sampleRate = 0;
    int channels = 0;
    double frames = 0;
    std::string encoding;  ///< "Signed 16 bit PCM"

    [[nodiscard]] double seconds() const { return frames / sampleRate; }
};

/// False with one line in `error` when the file cannot be opened or its length is unknown.
[[nodiscard]] bool readTrackInfo(const std::string& path, TrackInfo& info, std::string& error);

/// Everything that the lanes of one track show.
struct TrackAnalysis {
    TrackInfo info;
    std::vector<EnvelopeColumn> envelope;
    LevelGrid levels;
    double peak = 0;  ///< full scale is 1
    double rms = 0;
};

/// Reads the whole file in blocks. `axisSeconds` is the length of the shared time axis, spread
/// over `columns`; `scale` gives the rows of the spectrogram. Samples that are not numbers count
/// as 0. False with one line in `error` when the file cannot be read.
[[nodiscard]] bool analyseTrack(const Track& track, double axisSeconds, std::size_t columns,
                                const FrequencyScale& scale, TrackAnalysis& analysis,
                                std::string& error);

}  // namespace tqpicture
