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
                          pa_seek_mode_t seek, std::size_t prebuffer) noexcept {
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
    next_ = from + static_cast<std::int64_t>(frames);
    end_ = std::max(end_, next_);
    if (isHeld_) {
        held_ += frames * stream.format().bytesPerFrame();
        if (held_ >= prebuffer) {
            triggered(stream);
        }
    }
}

void PulseStream::corked(NativeStream* stream, bool isCorked) noexcept {
    isCorked_ = isCorked;
    if (stream != nullptr) {
        stream->frozen(isCorked_ || isHeld_);
    }
}

void PulseStream::hold(NativeStream& stream) noexcept {
    isHeld_ = true;
    held_ = 0;
    stream.frozen(true);
}

void PulseStream::flushed(NativeStream& stream) noexcept {
    // The server goes on where it plays.
    end_ -= static_cast<std::int64_t>(stream.waiting());
    next_ = end_;
    stream.flushed();
    hold(stream);
}

void PulseStream::triggered(NativeStream& stream) noexcept {
    isHeld_ = false;
    stream.frozen(isCorked_);
}

void PulseStream::settled(NativeStream& stream, std::size_t prebuffer) noexcept {
    isSettled = true;
    next_ = 0;
    end_ = 0;
    block = {};
    if (prebuffer != 0) {
        hold(stream);
    } else {
        triggered(stream);
    }
}

}  // namespace tq::bridges
