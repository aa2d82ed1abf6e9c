#include "unit/LevelMeter.h"

#include <algorithm>
#include <cmath>

namespace tqplatform {

namespace {

constexpr UInt32 kIdsPerKind = 1000;

/// The highest of the last second, or what there is when that is over.
void hold(Float32 peak, UInt32 frames, Float64 rate, Float32& held, UInt32& age) noexcept {
    age += frames;
    if (peak >= held || age > rate) {
        held = peak;
        age = 0;
    }
}

}  // namespace

std::optional<MeterReading> MeterReading::of(AudioUnitParameterID id) noexcept {
    const UInt32 channel = id % kIdsPerKind;
    if (channel >= kMaximumChannels) {
        return std::nullopt;
    }
    switch (id - channel) {
        case kMultiChannelMixerParam_PreAveragePower:
            return MeterReading{Kind::preAverage, channel};
        case kMultiChannelMixerParam_PrePeakHoldLevel:
            return MeterReading{Kind::prePeakHold, channel};
        case kMultiChannelMixerParam_PostAveragePower:
            return MeterReading{Kind::postAverage, channel};
        case kMultiChannelMixerParam_PostPeakHoldLevel:
            return MeterReading{Kind::postPeakHold, channel};
        default:
            return std::nullopt;
    }
}

void LevelMeter::begin() noexcept {
    frames_ = 0;
    for (Channel& channel : channels_) {
        channel.squares = 0;
        channel.peak = 0;
    }
}

void LevelMeter::add(const tqcommon::ConstAudioView& planes) noexcept {
    channelCount_ = planes.channels();
    frames_ += planes.frames();
    for (UInt32 i = 0; i < channelCount_; ++i) {
        const float* const plane = planes.plane(i);
        Float64 squares = 0;
        Float32 peak = 0;
        for (UInt32 frame = 0; frame < planes.frames(); ++frame) {
            squares += Float64{plane[frame]} * Float64{plane[frame]};
            peak = std::max(peak, std::abs(plane[frame]));
        }
        channels_[i].squares += squares;
        channels_[i].peak = std::max(channels_[i].peak, peak);
    }
}

void LevelMeter::end(const Float32* gains, UInt32 frames, Float64 rate,
                     std::uint64_t slice) noexcept {
    for (UInt32 i = 0; i < channelCount_; ++i) {
        Channel& channel = channels_[i];
        const auto average = static_cast<Float32>(
            frames_ > 0 ? std::sqrt(channel.squares / static_cast<Float64>(frames_)) : 0);
        const Float32 gain = std::abs(gains[i]);
        hold(channel.peak, frames, rate, channel.preHeld, channel.preAge);
        hold(channel.peak * gain, frames, rate, channel.postHeld, channel.postAge);
        const std::array<Float32, kKinds> levels{average, channel.preHeld, average * gain,
                                                 channel.postHeld};
        for (std::size_t kind = 0; kind < kKinds; ++kind) {
            channel.levels[kind].store(levels[kind], std::memory_order_relaxed);
        }
    }
    slice_.store(slice, std::memory_order_relaxed);
}

Float32 LevelMeter::read(MeterReading reading, std::uint64_t slice) const noexcept {
    // The slice before the one under way is the last that is over.
    constexpr std::uint64_t kPerSlice = 2;
    if (slice - slice_.load(std::memory_order_relaxed) > kPerSlice) {
        return kSilence;
    }
    const Float32 level =
        channels_[reading.channel].levels[static_cast<std::size_t>(reading.kind)].load(
            std::memory_order_relaxed);
    constexpr Float32 kDecibelsPerDecade = 20;
    return std::max(kSilence, kDecibelsPerDecade * std::log10(level));
}

}  // namespace tqplatform
