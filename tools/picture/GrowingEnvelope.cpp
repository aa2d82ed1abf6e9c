#include "picture/GrowingEnvelope.h"

#include <algorithm>
#include <cmath>

namespace tqpicture {

/// All of them in one column.
void GrowingEnvelope::add(const EnvelopeSum& frames) {
    if (sums_.empty() || sums_.back().frames == width_) {
        if (sums_.size() == kMostColumns) {
            halve();
        }
        sums_.emplace_back();
    }
    sums_.back().add(frames);
    whole_.add(frames);
}

void GrowingEnvelope::halve() {
    for (std::size_t index = 0; index < sums_.size() / 2; ++index) {
        EnvelopeSum both = sums_[2 * index];
        both.add(sums_[2 * index + 1]);
        sums_[index] = both;
    }
    sums_.resize(sums_.size() / 2);
    width_ *= 2;
}

void GrowingEnvelope::push(const float* samples, std::size_t frames) {
    for (std::size_t index = 0; index < frames; ++index, samples += channels_) {
        add(EnvelopeSum::of(samples, channels_));
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

std::vector<EnvelopeColumn> GrowingEnvelope::columns(std::size_t count, double framesPerColumn,
                                                     double startFrame) const {
    std::vector<EnvelopeSum> wanted(count);
    const auto columnOf = [&](double frame) {
        return static_cast<std::size_t>(std::max(std::floor(frame / framesPerColumn), 0.0));
    };
    double begin = startFrame;
    for (const EnvelopeSum& sum : sums_) {
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
    std::vector<EnvelopeColumn> columns;
    for (const EnvelopeSum& sum : wanted) {
        columns.push_back(sum.column(channels_));
    }
    return columns;
}

}  // namespace tqpicture
