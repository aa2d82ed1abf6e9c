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
        return wake_.wait_for(guard, std::chrono::seconds(30), [this] { return happened_; });
    }

  private:
    std::mutex lock_;
    std::condition_variable wake_;
    bool happened_ = false;
};
