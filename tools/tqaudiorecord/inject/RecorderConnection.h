#pragma once

#include <sys/types.h>

#include <string>

#include "ipc/TapSettings.h"

namespace tqrecorder {

/// The recorded process's end of the connection. The host may close any descriptor and make the
/// number its own, so each use first looks whether it still is ours.
class RecorderConnection {
  public:
    RecorderConnection() = default;
    ~RecorderConnection() { close(); }
    RecorderConnection(const RecorderConnection&) = delete;
    RecorderConnection& operator=(const RecorderConnection&) = delete;

    /// False when there is no recorder of this user at that address. Never waits long.
    [[nodiscard]] bool open(const std::string& socket);
    /// Sends the one message, with a descriptor when it is not -1. Never waits.
    [[nodiscard]] bool send(const Hello& hello, int descriptor) const;
    /// Waits for so long; true as soon as the recorder has gone.
    [[nodiscard]] bool waitForEnd(int milliseconds, pid_t recorder) const;
    void close();

  private:
    [[nodiscard]] bool isOurs() const;

    int socket_ = -1;
    dev_t device_ = 0;
    ino_t node_ = 0;
};

}  // namespace tqrecorder
