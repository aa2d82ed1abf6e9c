#include <Foundation/NSException.h>
#include <Foundation/NSThread.h>
#include <dispatch/dispatch.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "common/ForkLocks.h"
#include "common/SignalsBlocked.h"

namespace {

/// The blocks of a queue and the thread that runs them. The worker shares it with the queue, so
/// the queue may go away first, even from inside a block.
class Work : public std::enable_shared_from_this<Work> {
  public:
    explicit Work(const char* label) : label_(label != nullptr ? label : "") {}
    ~Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    [[nodiscard]] const std::string& label() const { return label_; }

    [[nodiscard]] bool isRunningHere() {
        const std::lock_guard<std::mutex> guard(lock_);
        return runner_ == std::this_thread::get_id();
    }

    void submit(std::function<void()> block) {
        {
            const std::lock_guard<std::mutex> guard(lock_);
            blocks_.push_back(std::move(block));
            if (hasRunner_) {
                wake_.notify_one();
                return;
            }
            hasRunner_ = true;
        }
        if (!startWorker()) {
            // The process can have no further thread, so the caller runs the block itself.
            runPending(WhenEmpty::leave);
        }
    }

    /// Nothing is submitted any more; the worker finishes what it has and ends.
    void close() {
        const std::lock_guard<std::mutex> guard(lock_);
        closed_ = true;
        wake_.notify_one();
    }

  private:
    enum class WhenEmpty { wait, leave };

    [[nodiscard]] bool startWorker() {
        const tqcommon::SignalsBlocked blocked;
        try {
            std::thread([self = shared_from_this()] {
                NSThread::setCurrentThreadName(self->label_);
                self->runPending(WhenEmpty::wait);
            }).detach();
            return true;
        } catch (const std::system_error&) {
            return false;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    /// Being the runner is exclusive: blocks never overlap, whichever thread it is.
    void runPending(WhenEmpty whenEmpty) {
        std::unique_lock<std::mutex> guard(lock_);
        runner_ = std::this_thread::get_id();
        for (;;) {
            if (whenEmpty == WhenEmpty::wait) {
                wake_.wait(guard, [this] { return !blocks_.empty() || closed_; });
            }
            if (blocks_.empty()) {
                break;
            }
            std::function<void()> block = std::move(blocks_.front());
            blocks_.pop_front();
            guard.unlock();
            NSCallGuarded(block);
            // What the block owns goes before the next one runs, and without the lock.
            block = nullptr;
            guard.lock();
        }
        runner_ = {};
        hasRunner_ = false;
    }

    /// Only in the child of a fork: the worker stayed behind. Blocks that wait are run behind the
    /// next one that is submitted.
    void forgetAfterFork() {
        // The threads that waited here are not in the child, which the condition does not know.
        std::construct_at(&wake_);
        if (runner_ != std::this_thread::get_id()) {
            runner_ = {};
            hasRunner_ = false;
        }
    }

    const std::string label_;
    std::mutex lock_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> blocks_;
    std::thread::id runner_;
    bool hasRunner_ = false;
    bool closed_ = false;
    tqcommon::ForkLock atFork_{
        tqcommon::ForkOrder::Foundation,
        lock_,
        {[](void* work) { static_cast<Work*>(work)->forgetAfterFork(); }, this}};
};

/// Lets one thread wait until another is done with its block.
class Completion {
  public:
    void signal() {
        const std::lock_guard<std::mutex> guard(lock_);
        done_ = true;
        wake_.notify_one();
    }
    void wait() {
        std::unique_lock<std::mutex> guard(lock_);
        wake_.wait(guard, [this] { return done_; });
    }

  private:
    std::mutex lock_;
    std::condition_variable wake_;
    bool done_ = false;
};

}  // namespace

class TQDispatchQueue {
  public:
    explicit TQDispatchQueue(const char* label) : work_(std::make_shared<Work>(label)) {}
    ~TQDispatchQueue() { work_->close(); }
    TQDispatchQueue(const TQDispatchQueue&) = delete;
    TQDispatchQueue& operator=(const TQDispatchQueue&) = delete;

    [[nodiscard]] const std::shared_ptr<Work>& work() const { return work_; }

  private:
    const std::shared_ptr<Work> work_;
};

dispatch_queue_t dispatch_queue_create(const char* label, std::nullptr_t) {
    return std::make_shared<TQDispatchQueue>(label);
}

void dispatch_async(const dispatch_queue_t& queue, std::function<void()> block) {
    if (queue != nullptr && block) {
        // The block may let go of the queue that `queue` refers to while this call still runs.
        const std::shared_ptr<Work> work = queue->work();
        work->submit(std::move(block));
    }
}

void dispatch_sync(const dispatch_queue_t& queue, std::function<void()> block) {
    if (queue == nullptr || !block) {
        return;
    }
    const std::shared_ptr<Work> work = queue->work();
    if (work->isRunningHere()) {
        NSCallGuarded(block);
        return;
    }
    // Shared, as signal() may still be on its way out when wait() has returned.
    const auto completion = std::make_shared<Completion>();
    work->submit([&block, completion] {
        NSCallGuarded(block);
        completion->signal();
    });
    completion->wait();
}

const char* dispatch_queue_get_label(const dispatch_queue_t& queue) {
    return queue != nullptr ? queue->work()->label().c_str() : "";
}
