#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "picture/Axis.h"

namespace tqpicture {

/// Levels in dBFS by column and row (row 0 at the top); a full-scale sine reads 0 dB. Cells
/// without data (before the start, after the end, above half the sample rate) are NaN.
class LevelGrid {
  public:
    LevelGrid() = default;
    LevelGrid(std::size_t columns, std::size_t rows);

    [[nodiscard]] std::size_t columns() const { return columns_; }
    [[nodiscard]] std::size_t rows() const { return rows_; }
    [[nodiscard]] float at(std::size_t column, std::size_t row) const {
        return levels_[column * rows_ + row];
    }
    void set(std::size_t column, std::size_t row, float decibels) {
        levels_[column * rows_ + row] = decibels;
    }

  private:
    std::size_t columns_ = 0;
    std::size_t rows_ = 0;
    std::vector<float> levels_;
};

/// Level of silence: below every floor that can be drawn.
inline constexpr float kSilenceDb = -240;

/// Turns a recording, block by block, into a grid of levels. Every stretch of the recording is
/// looked at through overlapping Hann windows of about 46 ms; a column shows the mean power of its
/// windows, in each of them the loudest channel.
class SpectrogramBuilder {
  public:
    struct Shape {
        std::size_t columns = 0;
        double framesPerColumn = 1;
        double startFrame = 0;  ///< frames before the recording begins on the axis
        int channels = 1;
        double sampleRate = 44100;
    };

    SpectrogramBuilder(const Shape& shape, const FrequencyScale& scale);
    ~SpectrogramBuilder();
    SpectrogramBuilder(const SpectrogramBuilder&) = delete;
    SpectrogramBuilder& operator=(const SpectrogramBuilder&) = delete;

    /// `frames` interleaved frames, all samples finite.
    void push(const float* samples, std::size_t frames);
    /// Closes the recording (a window that reaches beyond it sees silence there) and gives the
    /// grid.
    [[nodiscard]] LevelGrid finish();

  private:
    class Work;
    std::unique_ptr<Work> work_;
};

}  // namespace tqpicture
