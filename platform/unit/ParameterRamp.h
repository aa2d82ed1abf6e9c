#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <atomic>
#include <thread>

#include "unit/ParameterValue.h"

namespace tqplatform {

/// A change of one parameter that begins at a frame of the next slice: a jump, or a line.
///
/// Invariant: the fields of `next_` belong to whoever holds `state_` as writing or reading.
/// Writers: any thread, one at a time by that state. Reader: the thread that renders, at the
/// beginning of a slice. Published: the fields, by storing `ready` with release; taking it over
/// acquires them. `now_` is the render thread's alone.
class ParameterRamp {
  public:
    struct Change {
        SInt64 start;   ///< frame of the slice; below 0 it began in an earlier one
        UInt32 frames;  ///< 0 for a jump
        Float32 from;
        Float32 to;
        std::uint32_t count;  ///< of the parameter when this was scheduled: set since, it is void
    };

    /// [any thread] [real-time safe] From the next slice on; a change that was not taken up yet is
    /// replaced. Waits for the other side's few loads.
    void schedule(const Change& change) noexcept {
        State seen = state_.load(std::memory_order_relaxed);
        while (seen == State::writing || seen == State::reading ||
               !state_.compare_exchange_weak(seen, State::writing, std::memory_order_acquire)) {
            std::this_thread::yield();
            seen = state_.load(std::memory_order_relaxed);
        }
        next_ = change;
        state_.store(State::ready, std::memory_order_release);
    }

    /// [render thread] [real-time safe] Begins a slice. Whether a change is under way in it.
    [[nodiscard]] bool begin(const ParameterValue& value) noexcept {
        State ready = State::ready;
        if (state_.load(std::memory_order_relaxed) == State::ready &&
            state_.compare_exchange_strong(ready, State::reading, std::memory_order_acquire)) {
            now_ = next_;
            isActive_ = true;
            state_.store(State::empty, std::memory_order_release);
        }
        if (isActive_) {
            before_ = value.seen();
            isActive_ = before_.count == now_.count;
        }
        return isActive_;
    }
    /// [render thread] [real-time safe] The value at a frame of the slice; `before` is what it is
    /// where no change is under way.
    [[nodiscard]] Float32 at(Float64 frame, Float32 before) const noexcept {
        if (!isActive_) {
            return before;
        }
        const Float64 done = frame - static_cast<Float64>(now_.start);
        if (done < 0) {
            return before_.value;
        }
        if (done >= now_.frames) {
            return now_.to;
        }
        return now_.from + (now_.to - now_.from) * static_cast<Float32>(done / now_.frames);
    }
    /// [render thread] [real-time safe] Ends a slice of so many frames: `value` is what a reader of
    /// the parameter finds then, unless it was set meanwhile.
    void end(UInt32 frames, ParameterValue& value) noexcept {
        value.moveOn(before_, at(frames, before_.value));
        now_.start -= frames;
        isActive_ = now_.start + now_.frames > 0;
    }

  private:
    enum class State { empty, writing, ready, reading };

    std::atomic<State> state_{State::empty};
    Change next_{};
    Change now_{};
    ParameterValue::Seen before_{};  ///< at the beginning of the slice
    bool isActive_ = false;
};

}  // namespace tqplatform
