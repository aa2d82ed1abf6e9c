#include <pthread.h>

#include <ctime>

#include "inject/GuardState.h"
#include "inject/Tap.h"

// A child of fork() has one thread and copies of all locks, held or not. So forks wait for a moment
// in which nobody is likely to be inside the library, and the child begins anew.

namespace tqrecorder {

void Tap::watchForks() {
    pthread_atfork(
        [] {
            if (Tap* const tap = current()) {
                tap->work_.lock();
                tap->waitForQuietMoment();
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

void Tap::waitForQuietMoment() {
    // Asked of the library here: in the child another thread's lock might be in the way.
    countsAtFork_.size = sizeof countsAtFork_;
    (void)tq_capture_get_unit_counts(&countsAtFork_);
    framesAtFork_ = framesSince({});
    if (mix_ == nullptr || outlet_.load() == nullptr) {
        return;
    }
    // The mix comes last in a render cycle: right behind it the render thread leaves the library
    // and sleeps. Nobody can hold it there, so this makes the moment likely, not certain.
    const std::uint64_t before = mixBlocks_.load(std::memory_order_relaxed);
    constexpr timespec kPause{0, 200'000};
    constexpr int kMostPauses = 150;
    for (int i = 0; i < kMostPauses && mixBlocks_.load(std::memory_order_relaxed) == before; ++i) {
        nanosleep(&kPause, nullptr);
    }
    nanosleep(&kPause, nullptr);
}

void Tap::becomeChild() {
    if (outlet_.load() == nullptr && !isForked_.load()) {
        return;
    }
    // What is mapped is the parent's. The child gets its own if it ever makes a unit.
    outlet_.store(nullptr);
    connection_.close();
    countsBefore_ = countsAtFork_;
    framesBefore_ = framesAtFork_;
    isForked_.store(true);
}

void Tap::runForked() {
    if (!connection_.open(settings_.socket)) {
        return;
    }
    Hello hello = helloWith(guardStatus(), true);
    hello.isRecording = 1;
    hello.mayPlay = 1;
    if (!connectRecording(hello)) {
        return;
    }
    isUnitMade_ = isUnitSeen_ = true;
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
