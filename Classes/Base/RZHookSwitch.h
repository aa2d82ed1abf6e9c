#pragma once

#include <Foundation/NSObjCRuntime.h>

#include <atomic>
#include <mutex>

#include "TQAudioRecordResolver.h"

/// The switches of one set of replacements: installed once per process, passed through at will.
class RZHookSwitch {
  public:
    /// Runs `install` the first time; it sees the switch as started already.
    template <class Install>
    void startOnce(Install&& install) {
        const std::scoped_lock guard(lock_);
        if (!started_) {
            install(started_);
        }
    }
    [[nodiscard]] BOOL isStarted() const { return started_; }
    /// NO while every replacement passes straight through. Any thread, real-time safe.
    [[nodiscard]] BOOL isRecording() const { return recording_; }
    void setRecording(BOOL recording) { recording_ = recording; }

  private:
    std::mutex lock_;
    std::atomic<bool> started_{false};
    std::atomic<bool> recording_{true};
};

/// The record that redirects `symbol` to `replacement` and stores the platform's own function.
template <class Function>
TQRebinding rebinding(const char* symbol, Function* replacement, Function*& saved) {
    return {symbol, reinterpret_cast<void*>(replacement), reinterpret_cast<void**>(&saved)};
}
