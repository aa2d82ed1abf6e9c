#include "picture/GrowingEnvelope.h"

#include <algorithm>
#include <cmath>

namespace tqpicture {

void GrowingEnvelope::Sum::add(const Sum& other) {
    lowest = frames == 0 ? other.lowest : std::min(lowest, other.lowest);
    highest = frames == 0 ? other.highest : std::max(highest, other.highest);
    squares += other.squares;
    frames += other.frames;
}

/// All of them in one column.
void GrowingEnvelope::add(const Sum& frames) {
    if (sums_.empty() || sums_.back().frames == width_) {
        if (sums_.size() == kMostColumns) {
            halve();
        }
        sums_.emplace_back();
    }
    sums_.back().add(frames);
    frames_ += frames.frames;
}

void GrowingEnvelope::halve() {
    for (std::size_t index = 0; index < sums_.size() / 2; ++index) {
        Sum both = sums_[2 * index];
        both.add(sums_[2 * index + 1]);
        sums_[index] = both;
    }
    sums_.resize(sums_.size() / 2);
    width_ *= 2;
}

void GrowingEnvelope::push(const float* samples, std::size_t frames) {
    for (std::size_t index = 0; index < frames; ++index, samples += channels_) {
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
        add(frame);
    }
}

void GrowingEnvelope::pushSilence(std::uint64_t frames) {
    while (frames > 0) {
        const bool isFull = sums_.empty() || sums_.back().frames == width_;
        const std::uint64_t room = isFull ? width_ : width_ - sums_.back().frames;
        const std::uint64_t count = std::min(frames, room);
        add({0, 0, 0, count});
        frames -= count;
    }
}

double GrowingEnvelope::rms() const {
    return frames_ == 0 ? 0 : std::sqrt(squares_ / (static_cast<double>(frames_) * channels_));
}

std::vector<EnvelopeColumn> GrowingEnvelope::columns(std::size_t count, double framesPerColumn,
                                                     double startFrame) const {
    std::vector<Sum> wanted(count);
    const auto columnOf = [&](double frame) {
        return static_cast<std::size_t>(std::max(std::floor(frame / framesPerColumn), 0.0));
    };
    double begin = startFrame;
    for (const Sum& sum : sums_) {
        const double end = begin + static_cast<double>(sum.frames);
        std::size_t first = columnOf((begin + end - 1) / 2);
        std::size_t last = first;
        if (framesPerColumn < static_cast<double>(width_)) {
            // Columns narrower than what is kept repeat it.
            first = columnOf(begin);
            last = std::max(first, static_cast<std::size_t>(
                                       std::max(std::ceil(end / framesPerColumn) - 1, 0.0)));
        }
        for (std::size_t column = first; column <= last && column < count; ++column) {
            wanted[column].add(sum);
        }
        begin = end;
    }
    std::vector<EnvelopeColumn> columns(count);
    for (std::size_t index = 0; index < count; ++index) {
        const Sum& sum = wanted[index];
        if (sum.frames > 0) {
            const double samples = static_cast<double>(sum.frames) * channels_;
            columns[index] = {sum.lowest, sum.highest,
                              static_cast<float>(std::sqrt(sum.squares / samples)), true};
        }
    }
    return columns;
}

}  // namespace tqpicture
