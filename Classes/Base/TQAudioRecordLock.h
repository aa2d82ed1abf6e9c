#pragma once

#include <Foundation/Foundation.h>

#include <memory>

/// [any thread, one at a time] Scoped hold of a recursive lock. An early unlock() ends the guard
/// for good: a later lock() and the destructor then do nothing. A null lock makes every operation a
/// no-op.
class TQAudioRecordLock {
  public:
    explicit TQAudioRecordLock(std::shared_ptr<NSRecursiveLock> lock) : lock_(std::move(lock)) {
        if (lock_) {
            lock_->lock();
        }
    }
    ~TQAudioRecordLock() { unlock(); }
    TQAudioRecordLock(const TQAudioRecordLock&) = delete;
    TQAudioRecordLock& operator=(const TQAudioRecordLock&) = delete;

    /// Locks the held lock once more, if any.
    void lock() {
        if (lock_) {
            lock_->lock();
        }
    }
    void unlock() noexcept {
        if (lock_) {
            lock_->unlock();
            lock_.reset();
        }
    }

  private:
    std::shared_ptr<NSRecursiveLock> lock_;
};
