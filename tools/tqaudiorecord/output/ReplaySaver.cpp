#include "output/ReplaySaver.h"

#include <new>
#include <system_error>
#include <utility>

namespace tqrecorder {

ReplaySaver::~ReplaySaver() {
    finish();
}

bool ReplaySaver::isFull() const {
    const std::lock_guard lock(mutex_);
    return unwritten_ >= kMost;
}

bool ReplaySaver::isBusy() const {
    const std::lock_guard lock(mutex_);
    return unwritten_ > 0;
}

void ReplaySaver::add(ReplaySave save) {
    if (!isFinished_ && !thread_.joinable()) {
        try {
            thread_ = std::thread([this] { run(); });
        } catch (const std::system_error&) {
            // The programs' sound waits in their rings then, as far as these reach.
        }
    }
    if (!thread_.joinable()) {
        ReplaySaved saved = write(save);
        const std::lock_guard lock(mutex_);
        saved_.push_back(std::move(saved));
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(save));
        ++unwritten_;
    }
    more_.notify_one();
}

std::vector<ReplaySaved> ReplaySaver::take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(saved_, {});
}

void ReplaySaver::finish() {
    isFinished_ = true;
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    more_.notify_one();
    thread_.join();
}

/// Where memory is short a save fails, and not the recorder.
ReplaySaved ReplaySaver::write(const ReplaySave& save) const {
    try {
        return write_(save, [this] { return isGivenUp_.load(); });
    } catch (const std::bad_alloc&) {
        ReplaySaved saved{save.ticket};
        saved.problems.emplace_back("a save of the replay failed: there is no memory left for it");
        for (const ProcessClip& process : save.processes) {
            saved.failed.push_back(process.processId);
        }
        return saved;
    }
}

void ReplaySaver::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        more_.wait(lock, [this] { return isEnding_ || !waiting_.empty(); });
        if (waiting_.empty()) {
            return;
        }
        ReplaySaved saved;
        {
            const ReplaySave save = std::move(waiting_.front());
            waiting_.pop_front();
            lock.unlock();
            saved = write(save);
            // What it held is given back outside the lock.
        }
        lock.lock();
        --unwritten_;
        saved_.push_back(std::move(saved));
    }
}

}  // namespace tqrecorder
