#pragma once

#include <string>
#include <vector>

// Pictures of recordings: for each track a waveform (extremes and RMS of every pixel column) above
// a spectrogram, all on one time axis. Files are read once, in blocks; memory depends on the size
// of the picture and on the number of tracks, not on the length of the files.

namespace tqpicture {

class GrowingTrack;

/// The bytes of a PNG file.
using Png = std::vector<unsigned char>;

/// One recording to draw.
struct Track {
    std::string name;         ///< shown above its lane; the file's name when empty
    std::string path;         ///< anything that libsndfile reads and whose length is known
    double startSeconds = 0;  ///< where it begins on the shared time axis, 0 or later
};

/// A track that was kept while it was recorded.
struct KeptTrack {
    std::string name;
    const GrowingTrack* sound = nullptr;  ///< finished; the caller's
    double startSeconds = 0;
};

/// A moment worth marking, drawn as a line through all lanes.
struct EventMark {
    double seconds = 0;  ///< on the shared time axis; marks outside it are left out
    std::string label;
    bool isQuiet = false;  ///< nothing to worry about: in grey, its label where others leave room
};

enum class FrequencyAxis { kLogarithmic, kLinear };

struct Options {
    std::string title;              ///< none when empty
    int width = 1400;               ///< pixels, 400 to 8000
    int firstWaveformHeight = 150;  ///< pixels, 20 to 2000, for the first track (the mix)
    int firstSpectrogramHeight = 260;
    int waveformHeight = 90;  ///< the same for every other track
    int spectrogramHeight = 150;
    FrequencyAxis frequencyAxis = FrequencyAxis::kLogarithmic;
    double floorDb = -100;  ///< darkest colour, dBFS; -200 to -10
    std::vector<EventMark> events;
};

/// At most this many tracks fit one picture.
inline constexpr std::size_t kMaximumTracks = 64;

/// Draws `tracks` into the PNG file `pngPath`, replacing it. Tracks without any frame get an
/// empty lane that says so. [any thread] Waits for the disk.
/// False with one line in `error` (never touched otherwise) when a file cannot be read, an option
/// is out of its range, there is no track or too many, or the picture cannot be written.
[[nodiscard]] bool drawPicture(const std::vector<Track>& tracks, const std::string& pngPath,
                               const Options& options, std::string& error);

/// The same of what was kept, in a time that does not grow with the recording's. Touches no file.
[[nodiscard]] bool drawPicture(const std::vector<KeptTrack>& tracks, const Options& options,
                               Png& png, std::string& error);

}  // namespace tqpicture
