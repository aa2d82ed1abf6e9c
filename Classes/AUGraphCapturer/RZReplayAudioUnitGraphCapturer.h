#pragma once

#include <Foundation/NSObjCRuntime.h>

/// Puts the library between the host and the ten functions by which it builds and runs audio
/// graphs. Installed at load when the crash guard allows; never taken out again.
class RZReplayAudioUnitGraphCapturer {
  public:
    /// [host thread] Redirects the host's calls, once per process, and runs the self-test.
    static void startHook();
    /// [any thread]
    [[nodiscard]] static BOOL isHookStarted();
    /// [any thread] NO makes every replacement pass straight through and record nothing.
    static void enableHook(BOOL enable);
};
