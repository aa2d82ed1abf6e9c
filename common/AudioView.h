#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "common/RealTime.h"

namespace tqcommon {

/// Samples in memory that something else owns: so many frames of so many channels, planar or
/// interleaved. Every sample is found from the first one by two strides, so a part of a view is a
/// view again and costs no table of pointers. Copied freely; valid as long as the memory. Passed by
/// reference on the render path: by value it goes over the stack in pieces that are read back
/// whole, for which a processor waits. [any thread] [real-time safe]
template <class Sample>
class BasicAudioView {
  public:
    constexpr BasicAudioView() noexcept = default;
    /// `first` is frame 0 of channel 0; strides count in samples, from one channel to the next and
    /// from one frame to the next. A channel stride of 0 shows one plane as every channel.
    constexpr BasicAudioView(Sample* first, std::uint32_t channels, std::uint32_t frames,
                             std::ptrdiff_t channelStride, std::ptrdiff_t frameStride = 1) noexcept
        : first_(first),
          channels_(channels),
          frames_(frames),
          channelStride_(channelStride),
          frameStride_(frameStride) {}
    /// The channels of a frame side by side.
    [[nodiscard]] static constexpr BasicAudioView interleaved(Sample* first, std::uint32_t channels,
                                                              std::uint32_t frames) noexcept {
        return {first, channels, frames, 1, static_cast<std::ptrdiff_t>(channels)};
    }
    /// What may be written may be read.
    constexpr operator BasicAudioView<const Sample>() const noexcept
        requires(!std::is_const_v<Sample>) {
        return {first_, channels_, frames_, channelStride_, frameStride_};
    }

    [[nodiscard]] constexpr std::uint32_t channels() const noexcept { return channels_; }
    [[nodiscard]] constexpr std::uint32_t frames() const noexcept { return frames_; }
    /// Whether the frames of a channel follow each other without a gap.
    [[nodiscard]] constexpr bool isPlanar() const noexcept { return frameStride_ == 1; }

    /// The frames of one channel as an array; only of a planar view.
    [[nodiscard]] constexpr Sample* plane(std::uint32_t channel) const noexcept {
        assert(isPlanar() && channel < channels_);
        return first_ + static_cast<std::ptrdiff_t>(channel) * channelStride_;
    }
    [[nodiscard]] constexpr Sample& at(std::uint32_t channel, std::uint32_t frame) const noexcept {
        assert(channel < channels_ && frame < frames_);
        return first_[static_cast<std::ptrdiff_t>(channel) * channelStride_ +
                      static_cast<std::ptrdiff_t>(frame) * frameStride_];
    }
    /// `frames` frames from frame `first` on, all of them within this view.
    [[nodiscard]] constexpr BasicAudioView slice(std::uint32_t first,
                                                 std::uint32_t frames) const noexcept {
        assert(first <= frames_ && frames <= frames_ - first);
        return {first_ + static_cast<std::ptrdiff_t>(first) * frameStride_, channels_, frames,
                channelStride_, frameStride_};
    }

  private:
    Sample* first_ = nullptr;
    std::uint32_t channels_ = 0;
    std::uint32_t frames_ = 0;
    std::ptrdiff_t channelStride_ = 0;
    std::ptrdiff_t frameStride_ = 1;
};

using AudioView = BasicAudioView<float>;
using ConstAudioView = BasicAudioView<const float>;

/// [any thread] [real-time safe] Every sample becomes 0.
inline void silence(AudioView view) noexcept TQ_NONBLOCKING {
    for (std::uint32_t channel = 0; channel < view.channels(); ++channel) {
        if (view.isPlanar()) {
            std::fill_n(view.plane(channel), view.frames(), 0.0F);
            continue;
        }
        for (std::uint32_t frame = 0; frame < view.frames(); ++frame) {
            view.at(channel, frame) = 0.0F;
        }
    }
}

/// [any thread] [real-time safe] Copies channel by channel between views of one shape that do not
/// overlap.
inline void copy(ConstAudioView from, AudioView to) noexcept TQ_NONBLOCKING {
    assert(from.channels() == to.channels() && from.frames() == to.frames());
    for (std::uint32_t channel = 0; channel < to.channels(); ++channel) {
        if (from.isPlanar() && to.isPlanar()) {
            std::copy_n(from.plane(channel), to.frames(), to.plane(channel));
            continue;
        }
        for (std::uint32_t frame = 0; frame < to.frames(); ++frame) {
            to.at(channel, frame) = from.at(channel, frame);
        }
    }
}

}  // namespace tqcommon
