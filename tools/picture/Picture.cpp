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

/// What all tracks of a picture have in common.
struct Axes {
    double seconds = 0;
    double topHertz = 0;

    /// False where the track begins nowhere.
    [[nodiscard]] bool take(double startSeconds, double length, double sampleRate) {
        seconds = std::max(seconds, startSeconds + length);
        topHertz = std::max(topHertz, sampleRate / 2);
        return startSeconds >= 0 && std::isfinite(startSeconds);
    }
    [[nodiscard]] double shownSeconds() const {
        return seconds < kSmallestAxisSeconds ? 1 : seconds;
    }
};

std::string startComplaint(const std::string& track) {
    return "start of " + track + " out of range";
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
    Axes axes;
    for (const Track& track : tracks) {
        TrackInfo info;
        if (!readTrackInfo(track.path, info, error)) {
            return false;
        }
        if (!axes.take(track.startSeconds, info.seconds(), info.sampleRate)) {
            error = startComplaint(track.path);
            return false;
        }
    }

    std::vector<DrawnTrack> drawn(tracks.size());
    for (std::size_t index = 0; index < tracks.size(); ++index) {
        const Track& track = tracks[index];
        const Rectangle& plot = layout.lanes[index].spectrogram;
        drawn[index].name =
            track.name.empty() ? std::filesystem::path(track.path).filename().string() : track.name;
        if (!analyseTrack(track, axes.shownSeconds(), static_cast<std::size_t>(plot.width),
                          frequencyScale(options, axes.topHertz, plot.height),
                          drawn[index].analysis, error)) {
            return false;
        }
    }
    Png png;
    return draw({options, layout, drawn, axes.shownSeconds(), axes.topHertz}, png, error) &&
           writeFile(pngPath, png, error);
}

bool drawPicture(const std::vector<KeptTrack>& tracks, const Options& options, Png& png,
                 std::string& error) {
    if (const std::string wrong = complaint(tracks.size(), options); !wrong.empty()) {
        error = wrong;
        return false;
    }
    const Layout layout = layOut(tracks.size(), options);
    Axes axes;
    for (const KeptTrack& track : tracks) {
        if (!axes.take(track.startSeconds, track.sound->seconds(), track.sound->sampleRate())) {
            error = startComplaint(track.name);
            return false;
        }
    }
    std::vector<DrawnTrack> drawn;
    for (std::size_t index = 0; index < tracks.size(); ++index) {
        const KeptTrack& track = tracks[index];
        const Rectangle& plot = layout.lanes[index].spectrogram;
        drawn.push_back({track.name, track.sound->analysis(
                                         track.startSeconds, axes.shownSeconds(),
                                         static_cast<std::size_t>(plot.width),
                                         frequencyScale(options, axes.topHertz, plot.height))});
    }
    return draw({options, layout, drawn, axes.shownSeconds(), axes.topHertz}, png, error);
}

}  // namespace tqpicture
