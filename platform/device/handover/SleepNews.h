#pragma once

#include <memory>
#include <utility>

#include "device/HeardDevice.h"
#include "device/handover/HeardThread.h"

namespace tqplatform {

/// What is said of the machine's sleep while somebody wants to know. Whoever says it is connected
/// to on a thread of its own: a bus that hangs answers after half a minute, or never.
/// [one host thread at a time]
class SleepNews {
  public:
    /// `make` may be empty: no news comes then.
    explicit SleepNews(SleepWatchMaker make) : make_(std::move(make)) {}

    /// Connects, once; does not wait. Throws where there is no thread or no memory for it.
    void begin();
    /// Takes the next that is said. False where nothing new is, or it is not connected.
    [[nodiscard]] bool take();
    /// As what was taken last has it.
    [[nodiscard]] bool isAsleep() const noexcept { return isAsleep_; }
    /// Lets go of it; what still connects is left to its thread.
    void end() noexcept;
    /// In the child of a fork, whatever was under way.
    void forgetAfterFork() noexcept;

  private:
    using Made = std::unique_ptr<SleepWatch>;

    const SleepWatchMaker make_;
    Made watch_;
    std::shared_ptr<Made> coming_;             ///< its thread's until that is over
    std::unique_ptr<HeardThread> connecting_;  ///< one, also when nobody waits for it any more
    bool isAsleep_ = false;
};

}  // namespace tqplatform
