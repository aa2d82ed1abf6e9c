#pragma once

#include <TQAudioRecord/tq_source.h>

namespace tq::bridges {

/// [any thread] [real-time safe] Stands around our own code on a thread of the program, never
/// around a call of the native library: who is killed while he waits for the device has not died in
/// here.
class GuardScope {
  public:
    GuardScope() noexcept { tq_guard_enter(); }
    ~GuardScope() { tq_guard_leave(); }
    GuardScope(const GuardScope&) = delete;
    GuardScope& operator=(const GuardScope&) = delete;
};

}  // namespace tq::bridges
