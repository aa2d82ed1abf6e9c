#pragma once

#include <csignal>
#include <optional>

#include "common/Descriptor.h"

namespace tqrecorder {

/// Receives the signals that a recording answers to through a descriptor, as long as it lives.
/// [one host thread at a time]
class SignalGate {
  public:
    SignalGate() = default;
    ~SignalGate() { close(); }
    SignalGate(const SignalGate&) = delete;
    SignalGate& operator=(const SignalGate&) = delete;

    struct Signal {
        int number = 0;
        bool isFromTerminal = false;  ///< the terminal's whole foreground group got it
    };

    /// False when the system refuses. Signals that are ignored stay ignored.
    [[nodiscard]] bool open();
    void close();
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }
    /// The signal mask as it was before open(), for processes to be started.
    [[nodiscard]] const sigset_t& before() const { return before_; }
    /// The next one, if there is one.
    [[nodiscard]] std::optional<Signal> next() const;

  private:
    tqcommon::Descriptor descriptor_;
    sigset_t before_{};
};

}  // namespace tqrecorder
