#include "picture/GrowingTrack.h"

#include <cmath>
#include <utility>

namespace tqpicture {

GrowingTrack::GrowingTrack(double sampleRate, int channels, std::string encoding)
    : sampleRate_(sampleRate),
      channels_(channels),
      encoding_(std::move(encoding)),
      envelope_(channels),
      spectrogram_(channels, sampleRate) {
}

void GrowingTrack::push(const float* samples, std::size_t frames) {
    envelope_.push(samples, frames);
    spectrogram_.push(samples, frames);
}

void GrowingTrack::pushSilence(std::uint64_t frames) {
    envelope_.pushSilence(frames);
    spectrogram_.pushSilence(frames);
}

void GrowingTrack::finish() {
    if (!isFinished_) {
        spectrogram_.finish();
        isFinished_ = true;
    }
}

void GrowingTrack::coarsen(double seconds) {
    spectrogram_.coarsen(seconds * sampleRate_);
}

TrackAnalysis GrowingTrack::analysis(double startSeconds, double axisSeconds, std::size_t columns,
                                     const FrequencyScale& scale) const {
    const double framesPerColumn = axisSeconds * sampleRate_ / static_cast<double>(columns);
    const double startFrame = startSeconds * sampleRate_;
    TrackAnalysis analysis;
    analysis.info = {static_cast<int>(std::lround(sampleRate_)), channels_,
                     static_cast<double>(envelope_.frames()), encoding_};
    analysis.envelope = envelope_.columns(columns, framesPerColumn, startFrame);
    analysis.levels = spectrogram_.levels(columns, framesPerColumn, startFrame, scale);
    analysis.peak = envelope_.peak();
    analysis.rms = envelope_.rms();
    return analysis;
}

}  // namespace tqpicture
