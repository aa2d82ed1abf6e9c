#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace tqplatform {

/// The thread that calls a device. A sound server that stands still holds a call up for as long as
/// it likes: whoever waits for it looks after the rest meanwhile, or leaves.
class HeardThread {
  public:
    /// Throws std::system_error or std::bad_alloc where there can be none.
    HeardThread();
    /// Waits for no job: one that is under way goes on by itself, and owns all that it needs.
    ~HeardThread();
    HeardThread(const HeardThread&) = delete;
    HeardThread& operator=(const HeardThread&) = delete;

    /// [host thread] One at a time. A job throws nothing.
    void begin(std::function<void()> job);
    /// [host thread] Whether it is over, after that time at the most.
    [[nodiscard]] bool await(std::chrono::milliseconds longest);

  private:
    /// Under its mutex.
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::function<void()> job;  ///< that is to be begun
        bool isBusy = false;        ///< from begin() until the job has gone
        bool isLeft = false;
    };
    static void run(State& state);

    const std::shared_ptr<State> state_ = std::make_shared<State>();
    std::thread thread_;
};

}  // namespace tqplatform
