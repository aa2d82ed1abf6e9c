#pragma once

#include <Foundation/NSObjCRuntime.h>

/// Puts the library between the host and the ten functions by which it builds and runs audio
/// graphs. Installed at load when the crash guard allows; never taken out again.
class RZReplayAudioUnitGraphCapturer {
  public:
    /// Redirects the host's calls, once per process, and runs the self-test.
    static void startHook();
    [[nodiscard]] static BOOL isHookStarted();
    /// NO makes every replacement pass straight through and record nothing. Any thread.
    static void enableHook(BOOL enable);
};
