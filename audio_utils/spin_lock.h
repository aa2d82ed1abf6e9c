#pragma once

#include <atomic>
#include <cstdint>

namespace korva_audio_utils {

/// [any thread] A busy-wait lock for critical sections of a few instructions that render threads
/// enter too. Not recursive; it neither backs off nor yields. Usable with std::lock_guard.
///
/// Invariant: whoever changed the word from 1 to 0 holds the lock. Taking it is an exchange with
/// acquire order, giving it back a store with release order, which publishes what was done under
/// it.
class SpinLock {
  public:
    SpinLock() = default;
    SpinLock(const SpinLock&) = delete;
    SpinLock& operator=(const SpinLock&) = delete;

    void lock() noexcept {
        while (free_.exchange(0, std::memory_order_acquire) == 0) {
        }
    }
    void unlock() noexcept { free_.store(1, std::memory_order_release); }

  private:
    /// 1 = free, 0 = held.
    std::atomic<std::uint32_t> free_{1};
};

}  // namespace korva_audio_utils
