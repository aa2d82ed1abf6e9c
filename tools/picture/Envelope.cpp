#include "picture/Envelope.h"

#include <algorithm>
#include <cmath>

namespace tqpicture {

EnvelopeBuilder::EnvelopeBuilder(std::size_t columns, double framesPerColumn, double startFrame,
                                 int channels)
    : sums_(columns),
      framesPerColumn_(framesPerColumn),
      position_(startFrame),
      channels_(channels) {
}

void EnvelopeBuilder::add(std::size_t column, const Sum& frame) {
    Sum& sum = sums_[column];
    if (sum.frames == 0) {
        sum = frame;
        return;
    }
    sum.lowest = std::min(sum.lowest, frame.lowest);
    sum.highest = std::max(sum.highest, frame.highest);
    sum.squares += frame.squares;
    sum.frames += frame.frames;
}

void EnvelopeBuilder::push(const float* samples, std::size_t frames) {
    for (std::size_t index = 0; index < frames; ++index, samples += channels_, position_ += 1) {
        Sum frame{samples[0], samples[0], 0, 1};
        for (int channel = 0; channel < channels_; ++channel) {
            const float sample = samples[channel];
            frame.lowest = std::min(frame.lowest, sample);
            frame.highest = std::max(frame.highest, sample);
            frame.squares += static_cast<double>(sample) * sample;
        }
        peak_ = std::max(
            {peak_, -static_cast<double>(frame.lowest), static_cast<double>(frame.highest)});
        squares_ += frame.squares;
        ++frames_;

        const auto first = static_cast<std::size_t>(position_ / framesPerColumn_);
        // The last column that begins before the next frame; `first` itself for wide columns.
        const auto last = static_cast<std::size_t>(
            std::max(std::ceil((position_ + 1) / framesPerColumn_) - 1, 0.0));
        const std::size_t end = framesPerColumn_ >= 1 ? first : std::max(first, last);
        for (std::size_t column = first; column <= end && column < sums_.size(); ++column) {
            add(column, frame);
        }
    }
}

std::vector<EnvelopeColumn> EnvelopeBuilder::columns() const {
    std::vector<EnvelopeColumn> columns(sums_.size());
    for (std::size_t index = 0; index < sums_.size(); ++index) {
        const Sum& sum = sums_[index];
        if (sum.frames > 0) {
            const double samples = static_cast<double>(sum.frames) * channels_;
            columns[index] = {sum.lowest, sum.highest,
                              static_cast<float>(std::sqrt(sum.squares / samples)), true};
        }
    }
    return columns;
}

double EnvelopeBuilder::rms() const {
    return frames_ == 0 ? 0 : std::sqrt(squares_ / (static_cast<double>(frames_) * channels_));
}

}  // namespace tqpicture
