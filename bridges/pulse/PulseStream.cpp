#include "bridges/pulse/PulseStream.h"

#include <algorithm>

namespace tq::bridges {

std::int64_t PulseStream::place(const NativeStream& stream, std::int64_t offset,
                                pa_seek_mode_t seek) const noexcept {
    const std::int64_t frames = offset / stream.format().bytesPerFrame();
    switch (seek) {
        case PA_SEEK_ABSOLUTE:
            return frames;
        case PA_SEEK_RELATIVE_ON_READ:
            return end_ - static_cast<std::int64_t>(stream.waiting()) + frames;
        case PA_SEEK_RELATIVE_END:
            return end_ + frames;
        case PA_SEEK_RELATIVE:
            break;
    }
    return next_ + frames;
}

void PulseStream::written(NativeStream& stream, std::size_t frames, std::int64_t offset,
                          pa_seek_mode_t seek, std::size_t prebuffer,
                          std::int64_t underflow) noexcept {
    const std::int64_t from = place(stream, offset, seek);
    std::size_t late = 0;
    if (from > end_) {
        stream.skipped(static_cast<std::size_t>(from - end_));
        end_ = from;
    } else if (from < end_) {
        const auto back = static_cast<std::size_t>(end_ - from);
        const std::size_t taken = stream.takenBack(back);
        late = std::min(back - taken, frames);
        end_ -= static_cast<std::int64_t>(taken);
    }
    stream.accepted(frames, late);
    isDrained_ = false;
    underflow_ = underflow;
    stream.frozen(isCorked_ || isHeld_);
    next_ = from + static_cast<std::int64_t>(frames);
    end_ = std::max(end_, next_);
    if (isHeld_) {
        held_ += frames * stream.format().bytesPerFrame();
        if (held_ >= prebuffer) {
            triggered(stream);
        }
    }
}

/// The server has played everything: what still waits is the little by which the unit is behind.
/// Programs pause and flush a stream when it has ended, which must not cost its last frames.
bool PulseStream::hasBeenHeard(const NativeStream& stream, std::int64_t underflow) const noexcept {
    return (isDrained_ || underflow != underflow_) && stream.waiting() <= stream.behind();
}

void PulseStream::corked(NativeStream* stream, bool isCorked, std::int64_t underflow) noexcept {
    isCorked_ = isCorked;
    if (stream != nullptr && !(isCorked && hasBeenHeard(*stream, underflow))) {
        stream->frozen(isCorked_ || isHeld_);
    }
}

void PulseStream::hold(NativeStream& stream) noexcept {
    isHeld_ = true;
    held_ = 0;
    stream.frozen(true);
}

void PulseStream::flushed(NativeStream& stream, std::int64_t underflow) noexcept {
    if (hasBeenHeard(stream, underflow)) {
        isHeld_ = true;
        held_ = 0;
        return;
    }
    // The server goes on where it plays.
    end_ -= static_cast<std::int64_t>(stream.waiting());
    next_ = end_;
    stream.flushed();
    hold(stream);
}

void PulseStream::drained(NativeStream& stream) noexcept {
    isDrained_ = true;
    triggered(stream);
    stream.drained();
}

void PulseStream::triggered(NativeStream& stream) noexcept {
    isHeld_ = false;
    stream.frozen(isCorked_);
}

void PulseStream::settled(NativeStream& stream, std::size_t prebuffer) noexcept {
    isSettled = true;
    next_ = 0;
    end_ = 0;
    isDrained_ = false;
    underflow_ = -1;
    if (prebuffer != 0) {
        hold(stream);
    } else {
        triggered(stream);
    }
}

}  // namespace tq::bridges
