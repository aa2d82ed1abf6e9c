#pragma once

#include <mutex>

#include "NSObjCRuntime.h"

/// Recursive mutual exclusion. Any thread; unlock() on the thread that locked.
class NSRecursiveLock {
  public:
    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }
    /// True when the lock was taken.
    [[nodiscard]] bool tryLock() { return mutex_.try_lock(); }

  private:
    std::recursive_mutex mutex_;
};
