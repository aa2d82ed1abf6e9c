#pragma once

#include <Foundation/NSObjCRuntime.h>

#include <atomic>
#include <initializer_list>
#include <mutex>
#include <span>

#include "TQAudioRecordResolver.h"

/// [any thread] While one lives on a thread, its calls pass every replacement: for calls of the
/// library's own on the host's units and graphs, which are not the host's doing. Nests.
class RZOwnCalls {
  public:
    RZOwnCalls() noexcept { ++depth(); }
    ~RZOwnCalls() { --depth(); }
    RZOwnCalls(const RZOwnCalls&) = delete;
    RZOwnCalls& operator=(const RZOwnCalls&) = delete;

    [[nodiscard]] static bool isActive() noexcept { return depth() > 0; }

  private:
    static int& depth() noexcept {
        // In the library itself, so that the first use on a thread allocates nothing.
        [[gnu::tls_model("initial-exec")]] static thread_local int depth = 0;
        return depth;
    }
};

/// Replacements that are installed together: once per process, passed through at will.
class RZHookSet {
  public:
    struct Plan {
        const char* announcement = nullptr;  ///< for the system log; may be null
        std::span<const TQRebinding> (*rows)() = nullptr;
        void (*afterwards)() = nullptr;  ///< once calls are redirected; may be null
    };
    constexpr explicit RZHookSet(const Plan& plan) : plan_(plan) {}

    /// [host thread] Announces those of the sets that have not been started, in this order, and
    /// redirects their calls in one pass over the loaded images. A set counts as started before its
    /// calls are redirected. In a process that lets no memory be made writable nothing is started,
    /// and the system log says so. Sets are named in the order of their declaration below.
    static void start(std::initializer_list<RZHookSet*> sets);

    /// [any thread]
    [[nodiscard]] BOOL isStarted() const { return started_; }
    /// [any thread] NO while every replacement passes straight through. Real-time safe.
    [[nodiscard]] BOOL isRecording() const { return recording_ && !RZOwnCalls::isActive(); }
    /// [any thread]
    void setRecording(BOOL recording) { recording_ = recording; }

  private:
    static void nameLocks();

    const Plan plan_;
    std::mutex lock_;  // one start at a time, the self-test included
    std::atomic<bool> started_{false};
    std::atomic<bool> recording_{true};
};

// The library's sets, each defined beside its replacements. Constant-initialised: the image
// that holds them is redirected before all of its constructors have run.
extern constinit RZHookSet RZUnitHooks;
extern constinit RZHookSet RZGraphHooks;
/// What tells a program which callbacks a graph has; started with the graph's set, never passed
/// through for the program: ours may stand in a graph whatever the switch says.
extern constinit RZHookSet RZInteractionHooks;
/// What carries a graph's edits out beside its update; started with the graph's set, never passed
/// through for the program: ours may stand in a graph whatever the switch says.
extern constinit RZHookSet RZEditHooks;
/// What turns the process into another program, and what takes the signal by which the guard's
/// files are guarded; only the crash guard has to do with it.
extern constinit RZHookSet RZEndingHooks;
