#pragma once

#include <mutex>

#include "NSObjCRuntime.h"

/// Finds locks that are taken in contradicting orders, before they meet in a deadlock. Works in
/// programs and libraries that are built without NDEBUG; each order that a thread was seen in is
/// remembered until one of its locks is destroyed. A contradiction ends the process, with a line
/// on standard error that names both locks. [any thread] Allocates nothing.
namespace NSLockOrder {
TQ_PLATFORM_EXPORT void willLock(const void* lock) noexcept;
TQ_PLATFORM_EXPORT void didLock(const void* lock) noexcept;
TQ_PLATFORM_EXPORT void didUnlock(const void* lock) noexcept;
TQ_PLATFORM_EXPORT void forget(const void* lock) noexcept;
/// For the message; `name` must live as long as the lock.
TQ_PLATFORM_EXPORT void setName(const void* lock, const char* name) noexcept;
/// States an order beforehand: `first` is never taken by a thread that holds `second`.
TQ_PLATFORM_EXPORT void state(const void* first, const void* second) noexcept;
#ifdef NDEBUG
inline constexpr bool isChecked = false;
#else
inline constexpr bool isChecked = true;
#endif
}  // namespace NSLockOrder

/// Recursive mutual exclusion. [any thread] unlock() on the thread that locked.
class NSRecursiveLock {
  public:
    NSRecursiveLock() = default;
    ~NSRecursiveLock() {
        if constexpr (NSLockOrder::isChecked) {
            NSLockOrder::forget(this);
        }
    }
    NSRecursiveLock(const NSRecursiveLock&) = delete;
    NSRecursiveLock& operator=(const NSRecursiveLock&) = delete;

    void lock() {
        if constexpr (NSLockOrder::isChecked) {
            NSLockOrder::willLock(this);
        }
        mutex_.lock();
        if constexpr (NSLockOrder::isChecked) {
            NSLockOrder::didLock(this);
        }
    }
    void unlock() {
        if constexpr (NSLockOrder::isChecked) {
            NSLockOrder::didUnlock(this);
        }
        mutex_.unlock();
    }
    /// True when the lock was taken. Never waits, so it may be in any order.
    [[nodiscard]] bool tryLock() {
        const bool isTaken = mutex_.try_lock();
        if constexpr (NSLockOrder::isChecked) {
            if (isTaken) {
                NSLockOrder::didLock(this);
            }
        }
        return isTaken;
    }

    /// Of the std::recursive_mutex inside.
    [[nodiscard]] std::recursive_mutex::native_handle_type native_handle() {
        return mutex_.native_handle();
    }

    /// What NSLockOrder calls it; `name` must live as long as the lock.
    void setName(const char* name) {
        if constexpr (NSLockOrder::isChecked) {
            NSLockOrder::setName(this, name);
        }
    }
    /// States that no thread takes this lock while it holds `other`.
    void isTakenBefore(const NSRecursiveLock& other) const {
        if constexpr (NSLockOrder::isChecked) {
            NSLockOrder::state(this, &other);
        }
    }

  private:
    std::recursive_mutex mutex_;
};
