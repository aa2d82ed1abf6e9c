#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "common/Descriptor.h"
#include "ipc/TapSettings.h"

namespace tqrecorder {

/// A process that has connected and said who it is.
struct Visitor {
    tqcommon::Descriptor socket;
    tqcommon::Descriptor memory;  ///< when it records
    pid_t pid = 0;                ///< as the kernel tells it
    Hello hello;
};

/// The recorder's end: the address that processes connect to. One thread.
class Listener {
  public:
    /// Makes an address that nobody can guess. False with the reason in `error`.
    [[nodiscard]] bool open(std::string& error);
    /// The abstract name, without the leading zero byte.
    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] int descriptor() const { return socket_.get(); }

    /// Everybody who has connected and spoken since the last call. Never waits. Other users'
    /// processes are turned away.
    [[nodiscard]] std::vector<Visitor> visitors();

  private:
    struct Waiting {
        tqcommon::Descriptor socket;
        pid_t pid = 0;
    };
    enum class Heard { kNothing, kHello, kEnd };
    [[nodiscard]] static Heard hear(const Waiting& waiting, Visitor& visitor);

    tqcommon::Descriptor socket_;
    std::string name_;
    std::vector<Waiting> waiting_;
};

}  // namespace tqrecorder
