#pragma once

#include <AVFoundation/AVFoundation.h>

#include <string>
#include <utility>

namespace tqplatform {

/// What programs are told of the device that they play on, and lines on standard error. An
/// interruption begins once and ends once. [host thread] The caretaker's, but for what says
/// otherwise; handlers of programs may call everything.
///
/// Invariant: a handler that forks returns in the parent alone. What the caretaker looks after is
/// the parent's.
class CareNotices {
  public:
    /// `device` is for the lines.
    explicit CareNotices(std::string device) : device_(std::move(device)) {}

    void route(AVAudioSessionRouteChangeReason reason) const noexcept;
    void interrupt(AVAudioSessionInterruptionReason reason) noexcept;
    void endInterruption() noexcept;
    /// Programs were told so, and not yet of its end.
    [[nodiscard]] bool isInterrupted() const noexcept { return isInterrupted_; }
    /// Though a server answers; said once.
    void sayThatItCannotPlay() noexcept;
    /// [any thread] No device answers.
    void sayThatThereIsNone() const noexcept;
    /// In the child of a fork.
    void forgetAfterFork() noexcept { isInterrupted_ = false; }

  private:
    void say(const char* what) const noexcept;

    const std::string device_;
    bool isInterrupted_ = false;
    bool saidThatItCannot_ = false;
};

}  // namespace tqplatform
