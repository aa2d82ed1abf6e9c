#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/Descriptor.h"
#include "ipc/TapSettings.h"

namespace tqrecorder {

/// A process that has connected, with the message that says who it is.
struct Connection {
    tqcommon::Descriptor socket;
    tqcommon::Descriptor memory;  ///< when it records
    pid_t pid = 0;                ///< as the kernel tells it
    Hello hello;
};

/// The recorder's local socket that processes connect to. [one host thread at a time]
class Acceptor {
  public:
    /// Makes an address with a random name, so that other programs cannot guess it. False with the
    /// reason in `error`.
    [[nodiscard]] bool open(std::string& error);
    /// The abstract name, without the leading zero byte.
    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] int descriptor() const { return socket_.get(); }

    /// The processes that have connected and sent their Hello since the last call. Never waits.
    /// Connections of other users' processes are closed. Of those that say nothing a bounded number
    /// is kept: the oldest of the process that has most goes first.
    [[nodiscard]] std::vector<Connection> connections();
    /// Whether the last call found somebody for whom this process may open no descriptor: who has
    /// not connected yet waits, who has comes without memory.
    [[nodiscard]] bool isShort() const { return isShort_; }
    /// Connections that were closed because they said nothing and room was needed.
    [[nodiscard]] std::uint64_t silentConnections() const { return silent_; }

  private:
    struct Pending {
        tqcommon::Descriptor socket;
        pid_t pid = 0;
    };
    enum class Received { kNothing, kHello, kEnd };
    void takeIn();
    void makeRoom();
    [[nodiscard]] Received receive(const Pending& pending, Connection& connection);

    tqcommon::Descriptor socket_;
    std::string name_;
    std::vector<Pending> pending_;  // the oldest first
    std::uint64_t silent_ = 0;
    bool isShort_ = false;
};

}  // namespace tqrecorder
