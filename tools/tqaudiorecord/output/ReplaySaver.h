#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "output/ReplayWriter.h"

namespace tqrecorder {

/// Writes saves one after the other on a thread of its own, so that the recorder's goes on taking
/// what the programs deliver. [one host thread at a time]
class ReplaySaver {
  public:
    using Write = std::function<ReplaySaved(const ReplaySave&, const IsGivenUp&)>;
    /// What each holds stays in memory, at most as much as the replay keeps: so there is a bound.
    static constexpr std::size_t kMost = 4;

    explicit ReplaySaver(Write write) : write_(std::move(write)) {}
    /// As finish().
    ~ReplaySaver();
    ReplaySaver(const ReplaySaver&) = delete;
    ReplaySaver& operator=(const ReplaySaver&) = delete;

    /// Whether kMost are being written or wait for it.
    [[nodiscard]] bool isFull() const;
    /// Whether any is being written or waits for it.
    [[nodiscard]] bool isBusy() const;
    /// Those that are not written yet shall end soon, and short.
    void giveUp() { isGivenUp_ = true; }
    /// Never waits, but behind finish(), and where there is no thread to be had: then it is written
    /// before this returns.
    void add(ReplaySave save);
    /// Those that were written since the last call, in their order.
    [[nodiscard]] std::vector<ReplaySaved> take();
    /// Waits until all are written.
    void finish();

  private:
    [[nodiscard]] ReplaySaved write(const ReplaySave& save) const;
    void run();

    const Write write_;  // called by one thread at a time
    bool isFinished_ = false;
    std::atomic<bool> isGivenUp_ = false;
    std::thread thread_;  // since the first save, until finish()
    // What the two threads share, and how they wait for each other.
    mutable std::mutex mutex_;
    std::condition_variable more_;
    bool isEnding_ = false;
    std::deque<ReplaySave> waiting_;
    std::size_t unwritten_ = 0;  ///< those that wait, and the one that is being written
    std::vector<ReplaySaved> saved_;
};

}  // namespace tqrecorder
