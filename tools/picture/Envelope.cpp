#include "picture/Envelope.h"

#include <algorithm>
#include <cmath>

namespace tqpicture {

EnvelopeSum EnvelopeSum::of(const float* frame, int channels) {
    EnvelopeSum sum{frame[0], frame[0], 0, 1};
    for (int channel = 0; channel < channels; ++channel) {
        const float sample = frame[channel];
        sum.lowest = std::min(sum.lowest, sample);
        sum.highest = std::max(sum.highest, sample);
        sum.squares += static_cast<double>(sample) * sample;
    }
    return sum;
}

void EnvelopeSum::add(const EnvelopeSum& other) {
    lowest = frames == 0 ? other.lowest : std::min(lowest, other.lowest);
    highest = frames == 0 ? other.highest : std::max(highest, other.highest);
    squares += other.squares;
    frames += other.frames;
}

EnvelopeColumn EnvelopeSum::column(int channels) const {
    return frames == 0 ? EnvelopeColumn{}
                       : EnvelopeColumn{lowest, highest, static_cast<float>(rms(channels)), true};
}

double EnvelopeSum::peak() const {
    return std::max(-static_cast<double>(lowest), static_cast<double>(highest));
}

double EnvelopeSum::rms(int channels) const {
    return frames == 0 ? 0 : std::sqrt(squares / (static_cast<double>(frames) * channels));
}

EnvelopeBuilder::EnvelopeBuilder(std::size_t columns, double framesPerColumn, double startFrame,
                                 int channels)
    : sums_(columns),
      framesPerColumn_(framesPerColumn),
      position_(startFrame),
      channels_(channels) {
}

void EnvelopeBuilder::push(const float* samples, std::size_t frames) {
    for (std::size_t index = 0; index < frames; ++index, samples += channels_, position_ += 1) {
        const EnvelopeSum frame = EnvelopeSum::of(samples, channels_);
        whole_.add(frame);
        const auto first = static_cast<std::size_t>(position_ / framesPerColumn_);
        // The last column that begins before the next frame; `first` itself for wide columns.
        const auto last = static_cast<std::size_t>(
            std::max(std::ceil((position_ + 1) / framesPerColumn_) - 1, 0.0));
        const std::size_t end = framesPerColumn_ >= 1 ? first : std::max(first, last);
        for (std::size_t column = first; column <= end && column < sums_.size(); ++column) {
            sums_[column].add(frame);
        }
    }
}

std::vector<EnvelopeColumn> EnvelopeBuilder::columns() const {
    std::vector<EnvelopeColumn> columns;
    for (const EnvelopeSum& sum : sums_) {
        columns.push_back(sum.column(channels_));
    }
    return columns;
}

}  // namespace tqpicture
