#include "device/handover/HandoverBackend.h"

#include <utility>

#include "device/handover/ForkedChild.h"

namespace tqplatform {

HandoverBackend::HandoverBackend(std::string name, HeardMaker make, std::unique_ptr<Backend> clock,
                                 SleepWatchMaker watchSleep)
    : notices_(std::move(name)),
      requests_(notices_, [this] { caretaker_.run(); }),
      driving_(std::move(clock), [this] { return requests_.tellLateFormat(); }),
      caretaker_(std::move(make), std::move(watchSleep), *this, driving_, requests_, notices_) {
}

HandoverBackend::~HandoverBackend() {
    requests_.end();
}

bool HandoverBackend::preferRate(Float64 sampleRate, bool mayWait) noexcept {
    return !requests_.isBeingRefused(sampleRate) &&
           driving_.clock().preferRate(sampleRate, mayWait) &&
           requests_.preferRate(sampleRate, mayWait);
}

bool HandoverBackend::preferDuration(Float64 seconds, bool mayWait) noexcept {
    // The clock that drives in gaps, or alone, has them as well.
    const bool isTheClocks = driving_.clock().preferDuration(seconds, mayWait);
    return requests_.preferDuration(seconds, mayWait) || isTheClocks;
}

bool HandoverBackend::preferMicrophone(const std::string& name) noexcept {
    return requests_.preferMicrophone(name);
}

void HandoverBackend::expect(const ClientWants& wants, bool mayWait) noexcept {
    requests_.expect(wants, mayWait);
}

bool HandoverBackend::hurry(Float64 seconds) noexcept {
    return driving_.isByClock() && driving_.clock().hurry(seconds);
}

void HandoverBackend::renderHeard(const BlockRequest& block) noexcept {
    if (!driving_.renderHeard(block)) [[unlikely]] {
        // The server's connection is the parent's. Units that the child starts play on a device of
        // its own.
        forgetAfterFork();
        restInChild();
    }
}

void HandoverBackend::forgetAfterFork() noexcept {
    forgetOthersAfterFork();
    driving_.forgetAfterFork();
}

void HandoverBackend::forgetOthersAfterFork() noexcept {
    requests_.forgetAfterFork();
    caretaker_.forgetAfterFork();
    notices_.forgetAfterFork();
    driving_.forgetDeviceAfterFork();
}

}  // namespace tqplatform
