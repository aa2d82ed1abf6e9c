#pragma once

#include <string>

#include "common/Descriptor.h"

namespace tqrecorder {

/// Says whether other programs write to a terminal that we write to as well. [one host thread at a
/// time]
class TerminalWatch {
  public:
    /// Follows the terminal behind `descriptor`, which stays the caller's.
    explicit TerminalWatch(int descriptor);

    /// Whether others have written since the last call of this or of ownIsWritten(). True where
    /// that cannot be known.
    [[nodiscard]] bool haveOthersWritten();
    /// To be called right behind every write of ours, so that it is not taken for one of others.
    void ownIsWritten();
    /// Whether a program has taken the terminal's own ways with the keyboard away: line by line, as
    /// those do that draw the whole screen or a status line of their own, or the echo, as those do
    /// that ask for a password. These write to /dev/tty, which this does not hear.
    [[nodiscard]] bool isTakenOver() const;

  private:
    /// Whether anything was written since the last call.
    [[nodiscard]] bool take();

    int descriptor_;
    tqcommon::Descriptor notices_;
    bool isTried_ = false;  ///< the system has told of a write of ours
};

}  // namespace tqrecorder
