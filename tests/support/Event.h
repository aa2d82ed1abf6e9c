#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/// Something that happens on another thread; waiting for it ends after a bound.
class Event {
  public:
    void set() {
        const std::lock_guard<std::mutex> guard(lock_);
        happened_ = true;
        wake_.notify_all();
    }
    /// False when it did not happen within a time that no healthy run needs.
    [[nodiscard]] bool wait() {
        std::unique_lock<std::mutex> guard(lock_);
        return wake_.wait_for(guard, std::chrono::seconds(100), [this] { return happened_; });
    }

  private:
    std::mutex lock_;
    std::condition_variable wake_;
    bool happened_ = false;
};

/// A place where one thread, a callback's for example, stays until the test lets it go on.
class Gate {
  public:
    void enterAndWait() {
        std::unique_lock lock(mutex_);
        entered_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
    }
    void waitUntilEntered() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return entered_; });
    }
    void open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool entered_ = false;
    bool open_ = false;
};
