#pragma once

#include <memory>
#include <string>

#include "support/TemporaryFolder.h"
#include "support/servers/Recording.h"

namespace tqtest {

/// A JACK server on the wall clock instead of a device, under a name of its own.
class JackServer {
  public:
    /// Shorter periods would be late on a busy machine, and frames left out instead.
    explicit JackServer(int framesPerPeriod = 4096);

    [[nodiscard]] const Environment& environment() const { return environment_; }
    /// The first two output ports of the first client that comes, as 32-bit floats; connected as
    /// soon as they are there, which is after a client has begun: a sound that is to be whole waits
    /// for it.
    [[nodiscard]] std::unique_ptr<Recording> record() const;
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }
    /// It dies, and comes back under its name.
    void kill();
    void start();

  private:
    TemporaryFolder folder_;
    int framesPerPeriod_;
    Environment environment_;
    std::unique_ptr<Kept> server_;
};

}  // namespace tqtest
