#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "device/Device.h"

// A client of the null device that notes what it is given.

namespace tqtest::nulldevice {

using tqplatform::DeviceClient;
using tqplatform::DeviceSlice;
using tqplatform::sharedDevice;

constexpr std::chrono::seconds kBound{20};

inline UInt64 nowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<UInt64>(now.tv_sec) * 1'000'000'000 + static_cast<UInt64>(now.tv_nsec);
}

struct SliceNote {
    AudioTimeStamp time;
    UInt32 frames;
    UInt64 now;
};

/// Notes its slices, lets a test wait for a number of them, and does what the test says in each.
class Client final : public DeviceClient {
  public:
    explicit Client(std::function<void(const DeviceSlice&)> body = {}) : body_(std::move(body)) {
        notes_.reserve(1000);
    }
    ~Client() { sharedDevice().removeClient(*this); }

    void render(const DeviceSlice& slice) noexcept override {
        const UInt64 now = nowNs();
        ++slices;
        {
            const std::lock_guard lock(mutex_);
            notes_.push_back({*slice.time, slice.frames(), now});
            changed_.notify_all();
        }
        if (body_) {
            body_(slice);
        }
    }
    /// False when they do not come within the bound.
    bool waitForSlices(std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kBound, [&] { return notes_.size() >= count; });
    }
    std::vector<SliceNote> notes() {
        const std::lock_guard lock(mutex_);
        return notes_;
    }
    /// Without a lock, for the child of a fork.
    std::atomic<int> slices{0};

  private:
    std::function<void(const DeviceSlice&)> body_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<SliceNote> notes_;
};

}  // namespace tqtest::nulldevice
