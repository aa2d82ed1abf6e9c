#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "picture/Spectrogram.h"

namespace tqpicture {

/// The spectrogram of a recording whose length is not known yet, in room that does not grow with
/// it: 5 MB at 44100 Hz, 10 MB at 48000 Hz. When the columns are used up, each two become one.
/// Power is kept of every bin, since the rows depend on the other tracks of the picture.
class GrowingSpectrogram {
  public:
    GrowingSpectrogram(int channels, double sampleRate);
    ~GrowingSpectrogram();
    GrowingSpectrogram(const GrowingSpectrogram&) = delete;
    GrowingSpectrogram& operator=(const GrowingSpectrogram&) = delete;

    /// `frames` interleaved frames, all samples finite.
    void push(const float* samples, std::size_t frames);
    void pushSilence(std::uint64_t frames);
    /// Closes the recording: a window that reaches beyond it sees silence there.
    void finish();
    /// After finish(): merges columns as long as that leaves them no wider than `frames`.
    void coarsen(double frames);

    /// After finish(): as SpectrogramBuilder gives it, as far as the eye can tell, for a recording
    /// that begins `startFrame` frames into the first of `count` columns.
    [[nodiscard]] LevelGrid levels(std::size_t count, double framesPerColumn, double startFrame,
                                   const FrequencyScale& scale) const;

    /// At most that many columns are kept.
    static constexpr std::size_t kMostColumns = 2560;

  private:
    class Work;
    std::unique_ptr<Work> work_;
};

}  // namespace tqpicture
