#include <pthread.h>

#include "inject/GuardState.h"
#include "inject/Tap.h"

// A child of fork() has one thread and begins anew. The capture library sees to its own locks, so
// that both sides of a fork may call it.

namespace tqrecorder {

void Tap::watchForks() {
    pthread_atfork(
        [] {
            if (Tap* const tap = current()) {
                tap->work_.lock();
            }
        },
        [] {
            if (Tap* const tap = current()) {
                tap->work_.unlock();
            }
        },
        [] {
            if (Tap* const tap = current()) {
                tap->work_.unlock();
                tap->becomeChild();
            }
        });
}

void Tap::becomeChild() {
    // It gets one of its own in another way.
    isThreadOwed_.store(false);
    if (outlet_.load() == nullptr && !isForked_.load() && !isJoining_.load()) {
        isUnheard_.store(true, std::memory_order_relaxed);
        return;
    }
    isJoining_.store(false);
    // What is mapped is the parent's. The child gets its own if it ever makes a unit.
    outlet_.store(nullptr);
    connection_.close();
    // Asked of the child's own copy: what another thread did up to the fork itself is in it.
    countsBefore_.size = sizeof countsBefore_;
    (void)tq_capture_get_unit_counts(&countsBefore_);
    framesBefore_ = framesSince({});
    isForked_.store(true);
    // The thread that forked is the child's main thread.
    watchMainThread();
}

/// A stream has the level of the latest order from its first frame on. Before a process's first
/// sound nobody else follows the recorder; in the child of a fork its orders stand in what is
/// mapped of the parent's, until it has its own.
void Tap::beforeStream() noexcept {
    if (const std::unique_lock lock(work_, std::try_to_lock); lock) {
        followOrder();
    }
    // An order that comes before the first sound is followed from here on.
    recordForked();
}

/// The recorder has gone while nobody in the child looked. Nothing of it stays.
void Tap::beUnheard() {
    const std::lock_guard lock(work_);
    isUnheard_.store(true, std::memory_order_relaxed);
    volume_.end();
}

void Tap::recordForked() noexcept {
    if (!isForked_.load()) {
        return;
    }
    // First: a child that is forked in between is to be recorded as well.
    isJoining_.store(true);
    if (!isForked_.exchange(false)) {
        return;
    }
    try {
        startThread(&Tap::runForked);
    } catch (...) {
        // No thread to be had: the child plays on unrecorded.
        isJoining_.store(false);
    }
}

void Tap::runForked() {
    {
        const std::lock_guard lock(work_);
        followOrder();
    }
    if (!connection_.open(settings_.socket)) {
        beUnheard();
        isJoining_.store(false);
        return;
    }
    Hello hello = helloWith(guardStatus(), true);
    hello.isRecording = 1;
    hello.mayPlay = 1;
    bool isConnected = false;
    {
        // Another stream may begin meanwhile, and look where the parent's orders stand.
        const std::lock_guard lock(work_);
        isConnected = connectRecording(hello);
    }
    isJoining_.store(false);
    if (!isConnected) {
        beUnheard();
        return;
    }
    isUnitMade_ = true;
    isUnitSeen_ = settings_.choice.isAll() || isAnyWantedStarted();
    memory_->page().facts.bridges = useBridges();
    publishCounts(memory_->page());
    if (mix_ == nullptr) {
        collect();
    }
    // What the parent had started is not running here.
    (void)tq_capture_restart();
    runRecording();
}

}  // namespace tqrecorder
