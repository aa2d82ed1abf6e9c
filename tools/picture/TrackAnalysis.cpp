#include "picture/TrackAnalysis.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace tqpicture {
namespace {

constexpr std::size_t kBlockSamples = 1U << 17U;
// Pipes and some damaged headers answer with a length near the largest integer.
constexpr sf_count_t kLongestFrames = sf_count_t{1} << 48;

struct CloseFile {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using File = std::unique_ptr<SNDFILE, CloseFile>;

std::string encodingName(int format) {
    SF_FORMAT_INFO info{};
    info.format = format & SF_FORMAT_SUBMASK;
    const int failed = sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info);
    return failed == 0 && info.name != nullptr ? info.name : "";
}

File openTrack(const std::string& path, TrackInfo& info, std::string& error) {
    SF_INFO file{};
    File handle(sf_open(path.c_str(), SFM_READ, &file));
    if (handle == nullptr) {
        error = "cannot read " + path + ": " + sf_strerror(nullptr);
        return nullptr;
    }
    if (file.frames < 0 || file.frames > kLongestFrames) {
        error = "cannot read " + path + ": its length is unknown";
        return nullptr;
    }
    info.sampleRate = file.samplerate;
    info.channels = file.channels;
    info.frames = static_cast<double>(file.frames);
    info.encoding = encodingName(file.format);
    return handle;
}

}  // namespace

bool readTrackInfo(const std::string& path, TrackInfo& info, std::string& error) {
    return openTrack(path, info, error) != nullptr;
}

bool analyseTrack(const Track& track, double axisSeconds, std::size_t columns,
                  const FrequencyScale& scale, TrackAnalysis& analysis, std::string& error) {
    const File file = openTrack(track.path, analysis.info, error);
    if (file == nullptr) {
        return false;
    }
    const double rate = analysis.info.sampleRate;
    const int channels = analysis.info.channels;
    const double framesPerColumn = axisSeconds * rate / static_cast<double>(columns);
    const double startFrame = track.startSeconds * rate;
    EnvelopeBuilder envelope(columns, framesPerColumn, startFrame, channels);
    SpectrogramBuilder spectrogram({columns, framesPerColumn, startFrame, channels, rate}, scale);

    const std::size_t blockFrames =
        std::max<std::size_t>(1, kBlockSamples / static_cast<std::size_t>(channels));
    std::vector<float> block(blockFrames * static_cast<std::size_t>(channels));
    for (;;) {
        const sf_count_t got =
            sf_readf_float(file.get(), block.data(), static_cast<sf_count_t>(blockFrames));
        if (got <= 0) {
            break;
        }
        const auto frames = static_cast<std::size_t>(got);
        const auto end = block.begin() + static_cast<std::ptrdiff_t>(got * channels);
        std::replace_if(
            block.begin(), end, [](float sample) { return !std::isfinite(sample); }, 0.0F);
        envelope.push(block.data(), frames);
        spectrogram.push(block.data(), frames);
    }
    if (sf_error(file.get()) != SF_ERR_NO_ERROR) {
        error = "cannot read " + track.path + ": " + sf_strerror(file.get());
        return false;
    }
    analysis.envelope = envelope.columns();
    analysis.levels = spectrogram.finish();
    analysis.peak = envelope.peak();
    analysis.rms = envelope.rms();
    return true;
}

}  // namespace tqpicture
