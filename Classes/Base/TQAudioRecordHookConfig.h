#pragma once

#include <Foundation/NSObjCRuntime.h>

#include <atomic>
#include <memory>

#include "TQAudioRecordExport.h"

/// How the previous launch ended, as the crash guard found it at this start.
class TQ_RECORD_EXPORT TQAudioRecordPreLaunchState {
  public:
    /// Threads inside an intercepted callback when the previous run ended; above 0 it died there.
    [[nodiscard]] int preEnterCount() const { return preEnterCount_; }
    void setPreEnterCount(int count) { preEnterCount_ = count; }
    /// Retries that were left when this run started, before one was spent.
    [[nodiscard]] int currentRetryCount() const { return currentRetryCount_; }
    void setCurrentRetryCount(int count) { currentRetryCount_ = count; }

  private:
    std::atomic<int> preEnterCount_{0};
    std::atomic<int> currentRetryCount_{0};
};

/// The host's switches of the crash guard. They decide whether the next launch installs its hooks;
/// this run is not changed. Every function is [host thread]: it may write files.
class TQ_RECORD_EXPORT TQAudioRecordHookConfig {
  public:
    static TQAudioRecordHookConfig& shared();

    /// Asks for (or takes back) interception under an id of the host's choice, and restores the
    /// retry budget. 0 done, 1 the store is not initialised, 22 there are 20 ids already, 10
    /// unknown.
    int enableHook(unsigned int hookId, BOOL enable);
    /// True when the next launch would install its hooks.
    [[nodiscard]] BOOL isHookEnable();
    /// Forbids interception as long as `disable` stands, whatever was enabled. Codes as above.
    int forceDisableHook(unsigned int hookId, BOOL disable);
    /// A new record each time; reads 0 and 2 before the store is initialised.
    [[nodiscard]] std::shared_ptr<TQAudioRecordPreLaunchState> getPreLaunchState();

  private:
    TQAudioRecordHookConfig() = default;
};
