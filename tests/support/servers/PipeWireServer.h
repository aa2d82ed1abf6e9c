#pragma once

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"
#include "support/servers/Recording.h"

namespace tqtest {

/// PipeWire with its session manager and its PulseAudio server, without a device or a screen: one
/// null sink "cap", which is the default, and its monitor. Samples are 32-bit floats inside.
class PipeWireServer {
  public:
    PipeWireServer();

    [[nodiscard]] const Environment& environment() const { return environment_; }
    [[nodiscard]] std::unique_ptr<Recording> record(const std::string& sink = "cap") const;
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }
    /// All of it stands still, without ending, and goes on.
    void freeze() const { signal(SIGSTOP); }
    void thaw() const { signal(SIGCONT); }
    /// All but the bus dies, and comes back where it was.
    void kill();
    void start();

  private:
    [[nodiscard]] ProgramEnd run(const std::vector<std::string>& command) const;
    [[nodiscard]] std::unique_ptr<Kept> keep(const std::vector<std::string>& command) const;
    void signal(int number) const;

    TemporaryFolder folder_;  // outlives the servers that have files in it
    SoundFormat format_;
    Environment environment_;
    std::unique_ptr<Kept> bus_;
    std::vector<std::unique_ptr<Kept>> servers_;
};

/// The same for clients of JACK: they are given PipeWire's own libjack.
class PipeWireJackServer : public PipeWireServer {
  public:
    PipeWireJackServer();
    /// The first two output ports of the client "player", as 32-bit floats, as JackServer's.
    [[nodiscard]] std::unique_ptr<Recording> record() const;
};

}  // namespace tqtest
