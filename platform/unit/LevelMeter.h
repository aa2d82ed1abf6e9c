#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "format/PCMFormat.h"

namespace tqplatform {

/// What a parameter id of a meter asks for, and of which channel.
struct MeterReading {
    enum class Kind { preAverage, prePeakHold, postAverage, postPeakHold };
    Kind kind;
    UInt32 channel;

    /// Nothing when the id is none of a meter.
    [[nodiscard]] static std::optional<MeterReading> of(AudioUnitParameterID id) noexcept;
};

/// Levels of one bus of the mixer, channel by channel, before and behind its gains: the average
/// power of the last slice, and the highest peak, which is held for a second.
///
/// Writer: the thread that renders. Readers: any thread. Published: each level and the number of
/// the slice by itself, so all orders are relaxed; levels of two slices may be read side by side.
class LevelMeter {
  public:
    static constexpr Float32 kSilence = -120;  ///< dB: the least that is told

    // [render thread] [real-time safe] One slice: begin, any number of adds, end.
    void begin() noexcept;
    void add(const tqcommon::ConstAudioView& planes) noexcept;
    /// `gains` at the end of the slice, one per channel; `rate` is that of `frames`.
    void end(const Float32* gains, UInt32 frames, Float64 rate, std::uint64_t slice) noexcept;

    /// [any thread] [real-time safe] In dB of full scale. Silence when the bus was not part of the
    /// last slice; `slice` counts begins and ends.
    [[nodiscard]] Float32 read(MeterReading reading, std::uint64_t slice) const noexcept;

  private:
    static constexpr std::size_t kKinds = 4;
    struct Channel {
        Float64 squares = 0;
        Float32 peak = 0;
        Float32 preHeld = 0;
        Float32 postHeld = 0;
        UInt32 preAge = 0;  ///< frames since it was reached
        UInt32 postAge = 0;
        std::array<std::atomic<Float32>, kKinds> levels{};
    };

    std::array<Channel, kMaximumChannels> channels_{};
    UInt32 channelCount_ = 0;
    std::uint64_t frames_ = 0;
    std::atomic<std::uint64_t> slice_{0};
};

/// A meter that can be switched on and off. It is made when it is first wanted and then stays, so
/// that who renders never loses it.
class SwitchedMeter {
  public:
    /// Under the unit's lock.
    void turn(bool on) {
        if (on && meter_ == nullptr) {
            meter_ = std::make_unique<LevelMeter>();
        }
        active_.store(on ? meter_.get() : nullptr, std::memory_order_release);
    }
    /// [any thread] [real-time safe] Null while it is off.
    [[nodiscard]] LevelMeter* active() const noexcept {
        return active_.load(std::memory_order_acquire);
    }

  private:
    std::unique_ptr<LevelMeter> meter_;
    std::atomic<LevelMeter*> active_{nullptr};
};

}  // namespace tqplatform
