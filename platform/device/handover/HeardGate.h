#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "device/HeardDevice.h"

namespace tqplatform {

/// What a device's calls pass on their way to who keeps it. It tells a device that asks for nothing
/// from one whose request the program holds, and it can be closed for good.
class HeardGate final : public HeardHost {
  public:
    explicit HeardGate(HeardHost& host) noexcept : host_(&host) {}

    /// [any thread] Requests so far, those that are under way among them.
    [[nodiscard]] std::uint64_t requests() const noexcept { return requests_.load(); }
    /// [any thread] A request has come in and not returned.
    [[nodiscard]] bool isInside() const noexcept { return inside_.load() != 0; }
    /// [host thread] Waits for what is under way; whatever comes from then on is silence.
    void close() noexcept {
        host_.store(nullptr);
        while (isInside()) {
            std::this_thread::sleep_for(kStep);
        }
    }

    void renderHeard(const BlockRequest& block) noexcept override {
        requests_.fetch_add(1, std::memory_order_relaxed);
        pass([&](HeardHost& host) { host.renderHeard(block); },
             [&] { tqcommon::silence(block.played); });
    }
    void lostHeard() noexcept override {
        pass([](HeardHost& host) { host.lostHeard(); }, [] {});
    }
    bool isWantedAgain() noexcept override {
        bool isWanted = false;
        pass([&](HeardHost& host) { isWanted = host.isWantedAgain(); }, [] {});
        return isWanted;
    }

  private:
    static constexpr std::chrono::microseconds kStep{100};

    template <class Call, class Else>
    void pass(const Call& call, const Else& otherwise) noexcept {
        // In this order: who closes the gate sees the call, or the call sees that it is closed.
        inside_.fetch_add(1);
        if (HeardHost* const host = host_.load()) {
            call(*host);
        } else {
            otherwise();
        }
        inside_.fetch_sub(1);
    }

    std::atomic<HeardHost*> host_;
    std::atomic<int> inside_{0};
    std::atomic<std::uint64_t> requests_{0};
};

}  // namespace tqplatform
