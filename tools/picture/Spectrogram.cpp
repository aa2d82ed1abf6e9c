#include "picture/Spectrogram.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "picture/Spectrum.h"

namespace tqpicture {

LevelGrid::LevelGrid(std::size_t columns, std::size_t rows)
    : columns_(columns),
      rows_(rows),
      levels_(columns * rows, std::numeric_limits<float>::quiet_NaN()) {
}

class SpectrogramBuilder::Work {
  public:
    Work(const Shape& shape, const FrequencyScale& scale)
        : shape_(shape),
          window_(windowFrames(shape.sampleRate)),
          transform_(window_),
          rows_(binsOfRows(scale, shape.sampleRate, window_)),
          grid_(shape.columns, rows_.size()),
          history_(static_cast<std::size_t>(shape.channels)),
          loudest_(window_ / 2 + 1),
          mean_(window_ / 2 + 1) {
        // The first windows reach back before the recording, into silence.
        for (std::vector<float>& channel : history_) {
            channel.assign(window_ / 2, 0.0F);
        }
        historyStart_ = -static_cast<std::ptrdiff_t>(window_ / 2);
        const double half = static_cast<double>(window_) / 2;
        windowsPerColumn_ = std::max<std::size_t>(
            1, static_cast<std::size_t>(std::ceil(shape.framesPerColumn / half)));
        const double skipped = std::floor(shape.startFrame / shape.framesPerColumn);
        column_ = static_cast<std::size_t>(std::max(skipped, 0.0));
    }

    void push(const float* samples, std::size_t frames) {
        for (std::size_t channel = 0; channel < history_.size(); ++channel) {
            std::vector<float>& history = history_[channel];
            const std::size_t old = history.size();
            history.resize(old + frames);
            for (std::size_t index = 0; index < frames; ++index) {
                history[old + index] = samples[index * history_.size() + channel];
            }
        }
        total_ += frames;
        transformReady();
    }

    LevelGrid finish() {
        const std::size_t recorded = total_;
        for (std::vector<float>& channel : history_) {
            channel.resize(channel.size() + window_, 0.0F);
        }
        total_ += window_;
        end_ = static_cast<double>(recorded);
        transformReady();
        closeColumn();
        return std::move(grid_);
    }

  private:
    /// Middle of the next window, in frames of the recording.
    [[nodiscard]] double nextCentre() const {
        const double step = shape_.framesPerColumn / static_cast<double>(windowsPerColumn_);
        const double offset = step * (static_cast<double>(taken_) + 0.5);
        return static_cast<double>(column_) * shape_.framesPerColumn + offset - shape_.startFrame;
    }

    /// The middle of the next window, moved into the recording where the column lies only partly in
    /// it.
    [[nodiscard]] double placedCentre() const {
        const double centre = nextCentre();
        const double columnStart =
            static_cast<double>(column_) * shape_.framesPerColumn - shape_.startFrame;
        const bool lastChance = taken_ + 1 == windowsPerColumn_ && summed_ == 0;
        if (centre < 0 && lastChance && columnStart + shape_.framesPerColumn > 0) {
            return 0;
        }
        if (centre >= end_ && summed_ == 0 && columnStart < end_) {
            return end_ - 1;
        }
        return centre;
    }

    void transformReady() {
        const auto half = static_cast<std::ptrdiff_t>(window_ / 2);
        while (column_ < shape_.columns) {
            const double centre = placedCentre();
            const auto frame = static_cast<std::ptrdiff_t>(std::floor(centre));
            if (frame + half > static_cast<std::ptrdiff_t>(total_)) {
                break;
            }
            // A window whose middle is outside the recording is not used.
            if (centre >= 0 && centre < end_) {
                addWindow(frame - half);
            }
            if (++taken_ == windowsPerColumn_) {
                closeColumn();
                taken_ = 0;
                ++column_;
            }
        }
        // The window of the last frame so far waits: at the recording's end placedCentre() moves
        // it.
        const double needed = std::min(nextCentre(), static_cast<double>(total_) - 1);
        forgetBefore(static_cast<std::ptrdiff_t>(std::floor(needed)) - half);
    }

    void addWindow(std::ptrdiff_t firstFrame) {
        const auto offset = static_cast<std::size_t>(firstFrame - historyStart_);
        std::fill(loudest_.begin(), loudest_.end(), 0.0F);
        for (const std::vector<float>& channel : history_) {
            const std::vector<float>& power = transform_.of(channel.data() + offset);
            for (std::size_t bin = 0; bin < power.size(); ++bin) {
                loudest_[bin] = std::max(loudest_[bin], power[bin]);
            }
        }
        for (std::size_t bin = 0; bin < mean_.size(); ++bin) {
            mean_[bin] += loudest_[bin];
        }
        ++summed_;
    }

    void closeColumn() {
        if (summed_ == 0 || column_ >= shape_.columns) {
            return;
        }
        for (double& power : mean_) {
            power /= static_cast<double>(summed_);
        }
        for (std::size_t row = 0; row < rows_.size(); ++row) {
            if (rows_[row].hasData) {
                grid_.set(column_, row, levelOfRow(rows_[row], mean_));
            }
        }
        std::fill(mean_.begin(), mean_.end(), 0.0);
        summed_ = 0;
    }

    void forgetBefore(std::ptrdiff_t frame) {
        const std::ptrdiff_t held = static_cast<std::ptrdiff_t>(history_.front().size());
        const std::ptrdiff_t gone = std::clamp<std::ptrdiff_t>(frame - historyStart_, 0, held);
        for (std::vector<float>& channel : history_) {
            channel.erase(channel.begin(), channel.begin() + gone);
        }
        historyStart_ += gone;
    }

    Shape shape_;
    std::size_t window_;
    PowerSpectrum transform_;
    std::vector<RowBins> rows_;
    LevelGrid grid_;
    std::vector<std::vector<float>> history_;               // per channel, what windows still need
    std::ptrdiff_t historyStart_ = 0;                       // frame of history_[...][0]
    std::size_t total_ = 0;                                 // frames pushed
    double end_ = std::numeric_limits<double>::infinity();  // frames of the whole recording
    std::size_t windowsPerColumn_ = 1;
    std::size_t column_ = 0;
    std::size_t taken_ = 0;   // windows of this column passed, used or not
    std::size_t summed_ = 0;  // windows in mean_
    std::vector<float> loudest_;
    std::vector<double> mean_;
};

SpectrogramBuilder::SpectrogramBuilder(const Shape& shape, const FrequencyScale& scale)
    : work_(std::make_unique<Work>(shape, scale)) {
}

SpectrogramBuilder::~SpectrogramBuilder() = default;

void SpectrogramBuilder::push(const float* samples, std::size_t frames) {
    work_->push(samples, frames);
}

LevelGrid SpectrogramBuilder::finish() {
    return work_->finish();
}

}  // namespace tqpicture
