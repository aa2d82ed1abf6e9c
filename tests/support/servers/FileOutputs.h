#pragma once

#include <string>

#include "support/TemporaryFolder.h"
#include "support/servers/PulseServer.h"

// Outputs that need no server: what a program plays goes byte for byte into files.

namespace tqtest {

/// The ALSA device "cap", which is the default as well. Without a server nothing paces it: a
/// program writes as fast as it can. Over a PulseServer's sink it goes at the speed of the wall
/// clock; there aplay -M stands still for seconds at a time, with and without us.
class AlsaFilePcm {
  public:
    AlsaFilePcm();
    explicit AlsaFilePcm(const PulseServer& pacing);

    [[nodiscard]] const Environment& environment() const { return environment_; }
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }
    /// All that was written since the last call, one opening of the device behind the other.
    [[nodiscard]] std::string takeWritten();

  private:
    void configure(const std::string& below);

    TemporaryFolder folder_;
    Environment environment_;
};

/// SDL's driver that writes a file, at the speed of the wall clock. An opening of the device starts
/// the file anew. Its driver "dummy" keeps the same time and keeps nothing.
class SdlDisk {
  public:
    SdlDisk();

    [[nodiscard]] const Environment& environment() const { return environment_; }
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }
    [[nodiscard]] std::string takeWritten();

  private:
    TemporaryFolder folder_;
    Environment environment_;
};

}  // namespace tqtest
