#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "common/Descriptor.h"
#include "core/Control.h"

namespace tqrecorder {

/// A command that came, and who waits for its answer.
struct ControlRequest {
    ControlCommand command;
    tqcommon::Descriptor client;
};

/// The socket through which a recording is controlled; it is there as long as this lives.
/// [one host thread at a time]
class ControlServer {
  public:
    ControlServer() = default;
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    /// False with the reason in `error`.
    [[nodiscard]] bool open(std::string& error);
    [[nodiscard]] int descriptor() const { return socket_.get(); }
    /// Those that have come since the last call, of this user's processes only. Never waits. What
    /// makes no sense is answered here.
    [[nodiscard]] std::vector<ControlRequest> requests();
    /// Whether anybody is connecting, or has connected and not asked yet.
    [[nodiscard]] bool isAnybodyComing() const;
    /// Whether somebody waits for whom this process may open no descriptor.
    [[nodiscard]] bool isShort() const { return isShort_; }
    static void answer(const tqcommon::Descriptor& client, const ControlAnswer& answer);

  private:
    using Clock = std::chrono::steady_clock;
    struct Silent {
        tqcommon::Descriptor client;
        Clock::time_point since;
    };

    std::string path_;
    tqcommon::Descriptor socket_;
    bool isShort_ = false;
    std::vector<Silent> silent_;  // connected, and have not asked yet
};

}  // namespace tqrecorder
