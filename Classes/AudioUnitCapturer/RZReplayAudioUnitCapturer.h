#pragma once

#include <Foundation/NSObjCRuntime.h>

/// Puts the library between the host and the five functions by which it creates and runs output
/// units. Installed at load when the crash guard allows; never taken out again.
class RZReplayAudioUnitCapturer {
  public:
    /// Redirects the host's calls, once per process.
    static void startHook();
    [[nodiscard]] static BOOL isHookStarted();
    /// NO makes every replacement pass straight through and record nothing. Any thread.
    static void enableHook(BOOL enable);
};
