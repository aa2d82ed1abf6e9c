#pragma once

#include <Foundation/NSObjCRuntime.h>

/// Puts the library between the host and the five functions by which it creates and runs output
/// units. Installed at load when the crash guard allows; never taken out again.
class RZReplayAudioUnitCapturer {
  public:
    /// [host thread] Redirects the host's calls, once per process.
    static void startHook();
    /// [any thread]
    [[nodiscard]] static BOOL isHookStarted();
    /// [any thread] NO makes every replacement pass straight through and record nothing.
    static void enableHook(BOOL enable);
};
