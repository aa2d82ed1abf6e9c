#pragma once

#include "TQAudioRecordLock.h"
#include "common/ForkLocks.h"

/// [any thread, one at a time] Scoped hold of operatorLock. Threads that start and stop units in
/// turns keep it nearly all the time, so a fork that waits for it goes first.
class RZOperationLock {
  public:
    explicit RZOperationLock(const std::shared_ptr<NSRecursiveLock>& lock)
        : lock_((tqcommon::ForkLock::letForkPass(*lock), lock)) {}

  private:
    TQAudioRecordLock lock_;
};
