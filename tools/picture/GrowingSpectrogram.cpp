#include "picture/GrowingSpectrogram.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>
#include <vector>

#include "picture/Spectrum.h"

namespace tqpicture {
namespace {

/// Windows begin that much closer than they are long, until columns are wider than half of one.
constexpr std::uint64_t kColumnsPerWindow = 16;
constexpr std::uint64_t kSilentFrames = 4096;

/// A power in 16 bits: a float without the lower half of its mantissa, 0.02 dB off at most.
using ShortPower = std::uint16_t;

ShortPower shortened(float power) {
    const auto bits = std::bit_cast<std::uint32_t>(power);
    // Rounded to the next, which for two equally near is the even one.
    return static_cast<ShortPower>((bits + 0x7FFFU + ((bits >> 16U) & 1U)) >> 16U);
}

float lengthened(ShortPower power) {
    return std::bit_cast<float>(static_cast<std::uint32_t>(power) << 16U);
}

}  // namespace

class GrowingSpectrogram::Work {
  public:
    Work(int channels, double sampleRate)
        : sampleRate_(sampleRate),
          window_(windowFrames(sampleRate)),
          half_(static_cast<std::int64_t>(window_ / 2)),
          bins_(window_ / 2 + 1),
          width_(static_cast<std::int64_t>(window_ / kColumnsPerWindow)),
          transform_(window_),
          history_(static_cast<std::size_t>(channels)),
          loudest_(bins_),
          sum_(bins_) {
        // The first windows reach back before the recording, into silence.
        for (std::vector<float>& channel : history_) {
            channel.assign(static_cast<std::size_t>(half_), 0.0F);
        }
        historyStart_ = -half_;
        // What is not used yet takes no memory, and what is used never moves.
        powers_.reserve(kMostColumns * bins_);
    }

    void push(const float* samples, std::size_t frames) {
        const std::size_t channels = history_.size();
        for (std::size_t channel = 0; channel < channels; ++channel) {
            std::vector<float>& history = history_[channel];
            const std::size_t old = history.size();
            history.resize(old + frames);
            for (std::size_t index = 0; index < frames; ++index) {
                history[old + index] = samples[index * channels + channel];
            }
        }
        for (std::size_t index = frames * channels; index > 0; --index) {
            if (samples[index - 1] != 0) {
                soundEnd_ = total_ + static_cast<std::int64_t>((index - 1) / channels) + 1;
                break;
            }
        }
        total_ += static_cast<std::int64_t>(frames);
        transformReady(total_);
    }

    void pushSilence(std::uint64_t frames) {
        while (frames > 0) {
            const std::uint64_t count = std::min(frames, kSilentFrames);
            for (std::vector<float>& channel : history_) {
                channel.resize(channel.size() + count, 0.0F);
            }
            total_ += static_cast<std::int64_t>(count);
            transformReady(total_);
            frames -= count;
        }
    }

    void finish() {
        end_ = total_;
        for (std::vector<float>& channel : history_) {
            channel.resize(channel.size() + window_, 0.0F);
        }
        transformReady(total_ + static_cast<std::int64_t>(window_));
        if (summed_ == 0 && columnStart() < end_) {
            addWindow(end_ - 1 - half_);
        }
        if (summed_ > 0) {
            closeColumn();
        }
        powers_.shrink_to_fit();
        history_.clear();
    }

    void coarsen(double frames) {
        while (columns() > 1 && static_cast<double>(2 * width_) <= frames) {
            halve();
        }
    }

    [[nodiscard]] LevelGrid levels(std::size_t count, double framesPerColumn, double startFrame,
                                   const FrequencyScale& scale) const {
        const std::vector<RowBins> rows = binsOfRows(scale, sampleRate_, window_);
        LevelGrid grid(count, rows.size());
        std::vector<double> power(bins_);
        for (std::size_t column = 0; column < count && columns() > 0; ++column) {
            const double begin = static_cast<double>(column) * framesPerColumn - startFrame;
            const double end = begin + framesPerColumn;
            if (end <= 0 || begin >= static_cast<double>(end_)) {
                continue;
            }
            if (framesPerColumn < static_cast<double>(width_)) {
                blend((begin + end) / 2, power);
            } else {
                average(std::max(begin, 0.0), std::min(end, static_cast<double>(end_)), power);
            }
            for (std::size_t row = 0; row < rows.size(); ++row) {
                if (rows[row].hasData) {
                    grid.set(column, row, levelOfRow(rows[row], power));
                }
            }
        }
        return grid;
    }

  private:
    [[nodiscard]] std::size_t columns() const { return powers_.size() / bins_; }
    [[nodiscard]] std::int64_t columnStart() const {
        return static_cast<std::int64_t>(columns()) * width_;
    }
    [[nodiscard]] std::int64_t windowsPerColumn() const {
        return std::max<std::int64_t>(1, width_ / half_);
    }

    void transformReady(std::int64_t known) {
        for (;;) {
            const std::int64_t step = width_ / windowsPerColumn();
            const std::int64_t centre = columnStart() + taken_ * step + step / 2;
            if (centre + half_ > known || centre >= end_) {
                // The window of the last frame so far may still be wanted, for the recording's end.
                forgetBefore(std::min(centre, total_ - 1) - half_);
                return;
            }
            addWindow(centre - half_);
            if (++taken_ == windowsPerColumn()) {
                closeColumn();
            }
        }
    }

    void addWindow(std::int64_t first) {
        ++summed_;
        if (first >= soundEnd_) {
            return;  // silence
        }
        const auto offset = static_cast<std::size_t>(first - historyStart_);
        std::fill(loudest_.begin(), loudest_.end(), 0.0F);
        for (const std::vector<float>& channel : history_) {
            const std::vector<float>& power = transform_.of(channel.data() + offset);
            for (std::size_t bin = 0; bin < bins_; ++bin) {
                loudest_[bin] = std::max(loudest_[bin], power[bin]);
            }
        }
        for (std::size_t bin = 0; bin < bins_; ++bin) {
            sum_[bin] += loudest_[bin];
        }
    }

    void closeColumn() {
        const auto count = static_cast<float>(summed_);
        const std::size_t old = powers_.size();
        powers_.resize(old + bins_);
        for (std::size_t bin = 0; bin < bins_; ++bin) {
            powers_[old + bin] = shortened(sum_[bin] / count);
        }
        std::fill(sum_.begin(), sum_.end(), 0.0F);
        summed_ = 0;
        taken_ = 0;
        if (columns() == kMostColumns) {
            halve();
        }
    }

    /// One without a neighbour stays as it is.
    void halve() {
        const std::size_t pairs = columns() / 2;
        for (std::size_t pair = 0; pair < pairs; ++pair) {
            const ShortPower* from = powers_.data() + 2 * pair * bins_;
            ShortPower* to = powers_.data() + pair * bins_;
            for (std::size_t bin = 0; bin < bins_; ++bin) {
                to[bin] = shortened((lengthened(from[bin]) + lengthened(from[bins_ + bin])) / 2);
            }
        }
        if (columns() % 2 == 1) {
            std::copy(powers_.end() - static_cast<std::ptrdiff_t>(bins_), powers_.end(),
                      powers_.begin() + static_cast<std::ptrdiff_t>(pairs * bins_));
        }
        powers_.resize((columns() + 1) / 2 * bins_);
        width_ *= 2;
    }

    void forgetBefore(std::int64_t frame) {
        const auto held = static_cast<std::int64_t>(history_.front().size());
        const std::int64_t gone = std::clamp<std::int64_t>(frame - historyStart_, 0, held);
        for (std::vector<float>& channel : history_) {
            channel.erase(channel.begin(), channel.begin() + gone);
        }
        historyStart_ += gone;
    }

    void add(std::size_t column, double weight, std::vector<double>& power) const {
        const ShortPower* from = powers_.data() + std::min(column, columns() - 1) * bins_;
        for (std::size_t bin = 0; bin < bins_; ++bin) {
            power[bin] += weight * static_cast<double>(lengthened(from[bin]));
        }
    }

    /// The mean over [begin, end).
    void average(double begin, double end, std::vector<double>& power) const {
        std::fill(power.begin(), power.end(), 0.0);
        const auto width = static_cast<double>(width_);
        for (double from = begin; from < end;) {
            const double column = std::floor(from / width);
            const double to = std::min(end, (column + 1) * width);
            add(static_cast<std::size_t>(column), (to - from) / (end - begin), power);
            from = to;
        }
    }

    /// Between the middles of the two columns around that place.
    void blend(double place, std::vector<double>& power) const {
        std::fill(power.begin(), power.end(), 0.0);
        const double last = static_cast<double>(columns()) - 1;
        const double column = std::clamp(place / static_cast<double>(width_) - 0.5, 0.0, last);
        const double share = column - std::floor(column);
        add(static_cast<std::size_t>(column), 1 - share, power);
        add(static_cast<std::size_t>(column) + 1, share, power);
    }

    double sampleRate_;
    std::size_t window_;
    std::int64_t half_;
    std::size_t bins_;
    std::int64_t width_;  // frames of a column
    PowerSpectrum transform_;
    std::vector<ShortPower> powers_;           // by column and bin
    std::vector<std::vector<float>> history_;  // per channel, what windows still need
    std::int64_t historyStart_ = 0;            // frame of history_[...][0]
    std::int64_t total_ = 0;                   // frames pushed
    std::int64_t soundEnd_ = 0;                // behind the last frame that was not zero
    std::int64_t end_ = INT64_MAX;             // frames of the whole recording
    std::int64_t taken_ = 0;                   // windows of this column
    std::int64_t summed_ = 0;                  // of those, in sum_
    std::vector<float> loudest_;
    std::vector<float> sum_;
};

GrowingSpectrogram::GrowingSpectrogram(int channels, double sampleRate)
    : work_(std::make_unique<Work>(channels, sampleRate)) {
}

GrowingSpectrogram::~GrowingSpectrogram() = default;

void GrowingSpectrogram::push(const float* samples, std::size_t frames) {
    work_->push(samples, frames);
}

void GrowingSpectrogram::pushSilence(std::uint64_t frames) {
    work_->pushSilence(frames);
}

void GrowingSpectrogram::finish() {
    work_->finish();
}

void GrowingSpectrogram::coarsen(double frames) {
    work_->coarsen(frames);
}

LevelGrid GrowingSpectrogram::levels(std::size_t count, double framesPerColumn, double startFrame,
                                     const FrequencyScale& scale) const {
    return work_->levels(count, framesPerColumn, startFrame, scale);
}

}  // namespace tqpicture
