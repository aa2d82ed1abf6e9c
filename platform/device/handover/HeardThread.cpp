#include "device/handover/HeardThread.h"

#include <pthread.h>

#include <utility>

#include "common/SignalsBlocked.h"

namespace tqplatform {

HeardThread::HeardThread() {
    const tqcommon::SignalsBlocked blocked;
    thread_ = std::thread([state = state_] { run(*state); });
}

HeardThread::~HeardThread() {
    bool isBusy = false;
    {
        const std::lock_guard lock(state_->mutex);
        state_->isLeft = true;
        isBusy = state_->isBusy;
        state_->changed.notify_all();
    }
    if (isBusy) {
        thread_.detach();
    } else {
        thread_.join();
    }
}

void HeardThread::run(State& state) {
    pthread_setname_np(pthread_self(), "TQAudioServer");
    std::unique_lock lock(state.mutex);
    while (true) {
        state.changed.wait(lock, [&] { return state.isLeft || state.isBusy; });
        if (!state.isBusy) {
            return;
        }
        std::function<void()> job = std::exchange(state.job, nullptr);
        lock.unlock();
        job();
        // What it owns may be the last of a device, whose end takes long, too: it is over then.
        job = nullptr;
        lock.lock();
        state.isBusy = false;
        state.changed.notify_all();
    }
}

void HeardThread::begin(std::function<void()> job) {
    const std::lock_guard lock(state_->mutex);
    state_->job = std::move(job);
    state_->isBusy = true;
    state_->changed.notify_all();
}

bool HeardThread::await(std::chrono::milliseconds longest) {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, longest, [&] { return !state_->isBusy; });
}

}  // namespace tqplatform
