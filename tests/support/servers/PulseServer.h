#pragma once

#include <csignal>
#include <memory>
#include <string>

#include "support/TemporaryFolder.h"
#include "support/servers/Kept.h"
#include "support/servers/Recording.h"
#include "support/sound/Sound.h"

namespace tqtest {

/// PulseAudio without a device, a bus or a screen: one null sink "cap", which is the default, and
/// its monitor. The sink keeps the time of the wall clock.
class PulseServer {
  public:
    explicit PulseServer(const SoundFormat& format = {});

    /// For programs that shall play here.
    [[nodiscard]] const Environment& environment() const { return environment_; }
    [[nodiscard]] std::unique_ptr<Recording> record(const std::string& sink = "cap") const;
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }
    /// The server stands still, without ending, and goes on.
    void freeze() const { server_->signal(SIGSTOP); }
    void thaw() const { server_->signal(SIGCONT); }
    /// It dies, and comes back where it was.
    void kill();
    void start();
    [[nodiscard]] std::string socket() const { return folder_.file("pulse.sock"); }

  private:
    TemporaryFolder folder_;  // outlives the server that has files in it
    SoundFormat format_;
    Environment environment_;
    std::unique_ptr<Kept> server_;
};

}  // namespace tqtest
