#pragma once

#include <atomic>
#include <map>

#include "spin_lock.h"

namespace korva_audio_utils {

/// Lets each (category, code) pair pass at most once per interval, measured from the event that
/// last passed, so that a fault that repeats on every render cycle is reported and not flooded.
class EventFilter {
  public:
    /// Milliseconds of some clock.
    using Clock = long (*)();

    explicit EventFilter(Clock clock = &EventFilter::GetNow) noexcept : clock_(clock) {}
    EventFilter(const EventFilter&) = delete;
    EventFilter& operator=(const EventFilter&) = delete;

    /// [any thread] Real-time safe. The minimum spacing in milliseconds; 0 at first, which
    /// suppresses only repeats within one millisecond.
    void SetInterval(long milliseconds) noexcept {
        interval_.store(milliseconds, std::memory_order_relaxed);
    }
    long Interval() const noexcept { return interval_.load(std::memory_order_relaxed); }

    /// [any thread] True: let the event through. Takes the spin lock for one map operation;
    /// allocates only when it meets a pair for the first time.
    bool FilterEvent(int category, int code);

    /// [any thread] Real-time safe. code | (category << 16). Meant for 16 bits each; larger or
    /// negative codes overlap other categories.
    static int GetKey(int category, int code) noexcept;
    /// [any thread] Real-time safe. Milliseconds of the wall clock since the Unix epoch.
    static long GetNow();

  private:
    SpinLock lock_;
    std::map<int, long> lastPassTimes_;
    std::atomic<long> interval_{0};
    const Clock clock_;
};

}  // namespace korva_audio_utils
