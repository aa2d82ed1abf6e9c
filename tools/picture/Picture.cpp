#include "picture/Picture.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "picture/Drawing.h"

namespace tqpicture {
namespace {

constexpr double kSmallestAxisSeconds = 1e-6;

bool within(int value, int low, int high) {
    return value >= low && value <= high;
}

std::string complaint(const std::vector<Track>& tracks, const Options& options) {
    if (tracks.empty()) {
        return "no track to draw";
    }
    if (tracks.size() > kMaximumTracks) {
        return "too many tracks for one picture: " + std::to_string(tracks.size());
    }
    if (!within(options.width, 400, 8000)) {
        return "picture width out of range: " + std::to_string(options.width);
    }
    for (const int height : {options.firstWaveformHeight, options.firstSpectrogramHeight,
                             options.waveformHeight, options.spectrogramHeight}) {
        if (!within(height, 20, 2000)) {
            return "plot height out of range: " + std::to_string(height);
        }
    }
    if (!(options.floorDb >= -200 && options.floorDb <= -10)) {
        return "darkest level out of range";
    }
    for (const Track& track : tracks) {
        if (!(track.startSeconds >= 0) || !std::isfinite(track.startSeconds)) {
            return "start of " + track.path + " out of range";
        }
    }
    return {};
}

}  // namespace

bool drawPicture(const std::vector<Track>& tracks, const std::string& pngPath,
                 const Options& options, std::string& error) {
    if (const std::string wrong = complaint(tracks, options); !wrong.empty()) {
        error = wrong;
        return false;
    }
    const Layout layout = layOut(tracks.size(), options);
    // An image can hold no more rows than this.
    if (layout.height > 32000) {
        error = "too many tracks for one picture at these heights";
        return false;
    }

    double axisSeconds = 0;
    double topHertz = 0;
    for (const Track& track : tracks) {
        TrackInfo info;
        if (!readTrackInfo(track.path, info, error)) {
            return false;
        }
        axisSeconds = std::max(axisSeconds, track.startSeconds + info.seconds());
        topHertz = std::max(topHertz, info.sampleRate / 2.0);
    }
    if (axisSeconds < kSmallestAxisSeconds) {
        axisSeconds = 1;
    }

    std::vector<DrawnTrack> drawn(tracks.size());
    for (std::size_t index = 0; index < tracks.size(); ++index) {
        const Track& track = tracks[index];
        const Rectangle& plot = layout.lanes[index].spectrogram;
        drawn[index].name =
            track.name.empty() ? std::filesystem::path(track.path).filename().string() : track.name;
        if (!analyseTrack(track, axisSeconds, static_cast<std::size_t>(plot.width),
                          frequencyScale(options, topHertz, plot.height), drawn[index].analysis,
                          error)) {
            return false;
        }
    }
    return writeDrawing({options, layout, drawn, axisSeconds, topHertz}, pngPath, error);
}

}  // namespace tqpicture
