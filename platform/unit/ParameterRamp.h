#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <atomic>
#include <thread>

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
    [[nodiscard]] bool begin() noexcept {
        State seen = State::ready;
        if (state_.load(std::memory_order_relaxed) == State::ready &&
            state_.compare_exchange_strong(seen, State::reading, std::memory_order_acquire)) {
            now_ = next_;
            isActive_ = true;
            state_.store(State::empty, std::memory_order_release);
        }
        return isActive_;
    }
    /// [render thread] [real-time safe] The value at a frame of the slice; `before` is what it was.
    [[nodiscard]] Float32 at(Float64 frame, Float32 before) const noexcept {
        const Float64 done = frame - static_cast<Float64>(now_.start);
        if (!isActive_ || done < 0) {
            return before;
        }
        if (done >= now_.frames) {
            return now_.to;
        }
        return now_.from + (now_.to - now_.from) * static_cast<Float32>(done / now_.frames);
    }
    /// [render thread] [real-time safe] Ends a slice of so many frames: `value` is what a reader of
    /// the parameter finds then.
    void end(UInt32 frames, std::atomic<Float32>& value) noexcept {
        value.store(at(frames, value.load(std::memory_order_relaxed)), std::memory_order_relaxed);
        now_.start -= frames;
        isActive_ = now_.start + now_.frames > 0;
    }

  private:
    enum class State { empty, writing, ready, reading };

    std::atomic<State> state_{State::empty};
    Change next_{};
    Change now_{};
    bool isActive_ = false;
};

}  // namespace tqplatform
