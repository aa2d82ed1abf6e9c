#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "picture/GrowingEnvelope.h"
#include "picture/GrowingSpectrogram.h"
#include "picture/TrackAnalysis.h"

namespace tqpicture {

/// What a picture needs of a track, gathered while the track is recorded. Takes 5 MB at
/// 44100 Hz, 10 MB at 48000 Hz and 20 MB at 96000 Hz, however long it becomes. [one thread at a
/// time]
class GrowingTrack {
  public:
    /// `sampleRate` in Hz, above 0; `channels` above 0. `encoding` is for the caption.
    GrowingTrack(double sampleRate, int channels, std::string encoding);

    /// `frames` interleaved frames. Samples that are not numbers have to be replaced before.
    void push(const float* samples, std::size_t frames);
    void pushSilence(std::uint64_t frames);
    /// Takes no more after that. Only then it can be drawn.
    void finish();
    [[nodiscard]] bool isFinished() const { return isFinished_; }
    /// After finish(): gives up what would not be seen where one column is that many seconds.
    void coarsen(double seconds);

    [[nodiscard]] double seconds() const {
        return static_cast<double>(envelope_.frames()) / sampleRate_;
    }
    [[nodiscard]] double sampleRate() const { return sampleRate_; }
    [[nodiscard]] double peak() const { return envelope_.peak(); }  ///< full scale is 1
    [[nodiscard]] double rms() const { return envelope_.rms(); }

    /// After finish(): as analyseTrack() gives it of the whole file, as far as the eye can tell.
    [[nodiscard]] TrackAnalysis analysis(double startSeconds, double axisSeconds,
                                         std::size_t columns, const FrequencyScale& scale) const;

  private:
    double sampleRate_;
    int channels_;
    std::string encoding_;
    GrowingEnvelope envelope_;
    GrowingSpectrogram spectrogram_;
    bool isFinished_ = false;
};

}  // namespace tqpicture
