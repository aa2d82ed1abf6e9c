#pragma once

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

#include "common/Descriptor.h"
#include "ipc/TapSettings.h"
#include "session/HostProgram.h"

namespace tqrecorder {

/// Where the library that goes into recorded processes is: beside this program as it was built or
/// installed. Empty when it is missing.
[[nodiscard]] std::string findGate();

/// How a command is to be started.
struct LaunchPlan {
    std::vector<std::string> command;
    HostProgram program;
    TapSettings settings;
    std::string gate;
    bool ownGroup = false;       ///< away from the terminal's interrupt and its foreground
    bool outputToError = false;  ///< the standard output is the recording's
    sigset_t signals{};          ///< its signal mask
};

/// A started command. Leaves the process alone when it is destroyed.
class Launch {
  public:
    Launch() = default;
    ~Launch();
    Launch(const Launch&) = delete;
    Launch& operator=(const Launch&) = delete;

    /// False with the reason in `error`.
    [[nodiscard]] bool start(const LaunchPlan& plan, std::string& error);
    [[nodiscard]] pid_t pid() const { return pid_; }
    /// Readable once it has ended.
    [[nodiscard]] int endDescriptor() const { return end_.get(); }
    /// Whether it has ended; its exit code is there from then on.
    [[nodiscard]] bool isOver();
    /// As a shell tells it: 128 and the signal's number after a signal.
    [[nodiscard]] int exitCode() const { return exitCode_; }
    /// The signal that ended it, 0 for none.
    [[nodiscard]] int endSignal() const { return endSignal_; }
    void signal(int number) const;
    /// Something that it has started runs on, and loads the library into what it starts itself.
    void leaveRunning() { isAnyLeft_ = true; }

  private:
    pid_t pid_ = 0;
    tqcommon::Descriptor end_;
    bool isOver_ = false;
    bool isAnyLeft_ = false;
    int exitCode_ = 0;
    int endSignal_ = 0;
    std::string linkFolder_;  ///< through which the library is reached; empty without
};

}  // namespace tqrecorder
