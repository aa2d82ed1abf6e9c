#include "picture/Picture.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "picture/Drawing.h"
#include "picture/GrowingTrack.h"

namespace tqpicture {
namespace {

constexpr double kSmallestAxisSeconds = 1e-6;

bool within(int value, int low, int high) {
    return value >= low && value <= high;
}

std::string complaint(std::size_t tracks, const Options& options) {
    if (tracks == 0) {
        return "no track to draw";
    }
    if (tracks > kMaximumTracks) {
        return "too many tracks for one picture: " + std::to_string(tracks);
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
    // An image can hold no more rows than this.
    if (layOut(tracks, options).height > 32000) {
        return "too many tracks for one picture at these heights";
    }
    return {};
}

bool isStart(double seconds) {
    return seconds >= 0 && std::isfinite(seconds);
}

double axisFor(double seconds) {
    return seconds < kSmallestAxisSeconds ? 1 : seconds;
}

bool writeFile(const std::string& path, const Png& png, std::string& error) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
    file.close();
    if (!file) {
        error = "cannot write " + path;
    }
    return !file.fail();
}

}  // namespace

bool drawPicture(const std::vector<Track>& tracks, const std::string& pngPath,
                 const Options& options, std::string& error) {
    if (const std::string wrong = complaint(tracks.size(), options); !wrong.empty()) {
        error = wrong;
        return false;
    }
    const Layout layout = layOut(tracks.size(), options);
    double axisSeconds = 0;
    double topHertz = 0;
    for (const Track& track : tracks) {
        if (!isStart(track.startSeconds)) {
            error = "start of " + track.path + " out of range";
            return false;
        }
        TrackInfo info;
        if (!readTrackInfo(track.path, info, error)) {
            return false;
        }
        axisSeconds = std::max(axisSeconds, track.startSeconds + info.seconds());
        topHertz = std::max(topHertz, info.sampleRate / 2.0);
    }
    axisSeconds = axisFor(axisSeconds);

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
    Png png;
    return draw({options, layout, drawn, axisSeconds, topHertz}, png, error) &&
           writeFile(pngPath, png, error);
}

bool drawPicture(const std::vector<KeptTrack>& tracks, const Options& options, Png& png,
                 std::string& error) {
    if (const std::string wrong = complaint(tracks.size(), options); !wrong.empty()) {
        error = wrong;
        return false;
    }
    const Layout layout = layOut(tracks.size(), options);
    double axisSeconds = 0;
    double topHertz = 0;
    for (const KeptTrack& track : tracks) {
        if (!isStart(track.startSeconds)) {
            error = "start of " + track.name + " out of range";
            return false;
        }
        axisSeconds = std::max(axisSeconds, track.startSeconds + track.sound->seconds());
        topHertz = std::max(topHertz, track.sound->sampleRate() / 2.0);
    }
    axisSeconds = axisFor(axisSeconds);
    std::vector<DrawnTrack> drawn;
    for (std::size_t index = 0; index < tracks.size(); ++index) {
        const KeptTrack& track = tracks[index];
        const Rectangle& plot = layout.lanes[index].spectrogram;
        drawn.push_back(
            {track.name, track.sound->analysis(track.startSeconds, axisSeconds,
                                               static_cast<std::size_t>(plot.width),
                                               frequencyScale(options, topHertz, plot.height))});
    }
    return draw({options, layout, drawn, axisSeconds, topHertz}, png, error);
}

}  // namespace tqpicture
