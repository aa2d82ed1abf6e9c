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
    // First of all, as a flush leaves the stream playing: not a block may play before its time.
    stream.frozen(isCorked_ || isHeld_);
    stream.waitsFor(start());
    stream.accepted(frames, late);
    isDrained_ = false;
    hasPrebuffer_ = prebuffer != 0;
    underflow_ = underflow;
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

/// Where the server stands: ahead of the unit, by as much as that may be behind.
std::int64_t PulseStream::heardEnd(const NativeStream& stream) const noexcept {
    const std::size_t waiting = stream.waiting();
    const std::int64_t unit = end_ - static_cast<std::int64_t>(waiting);
    if (isCorked_ || isHeld_ || !isStarted) {
        return std::clamp(heardEnd_, unit, end_);
    }
    return unit + static_cast<std::int64_t>(std::min(waiting, stream.behind()));
}

void PulseStream::corked(NativeStream* stream, bool isCorked, std::int64_t underflow) noexcept {
    if (stream != nullptr) {
        heardEnd_ = heardEnd(*stream);
    }
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
    // The server goes on where it plays.
    heardEnd_ = hasBeenHeard(stream, underflow) ? end_ : heardEnd(stream);
    const auto unheard = static_cast<std::size_t>(end_ - heardEnd_);
    end_ = heardEnd_;
    next_ = end_;
    stream.flushed(unheard);
    hold(stream);
    // What is left has been heard: it plays out, in a pause as well.
    stream.frozen(false);
}

void PulseStream::started(NativeStream* stream) noexcept {
    isStarted = true;
    if (stream != nullptr) {
        stream->started();
    }
}

void PulseStream::ended(NativeStream& stream) noexcept {
    if (isDrained_ || (!isCorked_ && !isHeld_ && isStarted)) {
        stream.cutShort();
        return;
    }
    const std::int64_t unheard = end_ - heardEnd(stream);
    stream.flushed(static_cast<std::size_t>(unheard));
    if (stream.waiting() != 0) {
        stream.frozen(false);
    }
}

void PulseStream::drained(NativeStream& stream) noexcept {
    isDrained_ = true;
    triggered(stream);
}

void PulseStream::prebuffered(NativeStream& stream, std::size_t prebuffer) noexcept {
    const std::int64_t heard = heardEnd(stream);
    const auto waiting = static_cast<std::size_t>(end_ - heard) * stream.format().bytesPerFrame();
    if (isHeld_ || waiting >= prebuffer) {
        return;
    }
    heardEnd_ = heard;
    hold(stream);
    held_ = waiting;
}

void PulseStream::triggered(NativeStream& stream) noexcept {
    isHeld_ = false;
    stream.frozen(isCorked_);
}

void PulseStream::settled(NativeStream& stream, std::size_t prebuffer) noexcept {
    isSettled = true;
    next_ = 0;
    end_ = 0;
    heardEnd_ = 0;
    isDrained_ = false;
    underflow_ = -1;
    if (prebuffer != 0) {
        hold(stream);
    } else {
        triggered(stream);
    }
}

}  // namespace tq::bridges
