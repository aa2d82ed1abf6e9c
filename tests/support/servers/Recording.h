#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"
#include "support/servers/Kept.h"
#include "support/sound/Sound.h"

namespace tqtest {

/// What a server plays, as a program writes it to standard output, from the moment that the object
/// exists on.
class Recording {
  public:
    /// Returns when the first frames are there: nothing that is played afterwards is missed. Two of
    /// one folder need two names.
    Recording(const std::vector<std::string>& recorder, const Environment& environment,
              const TemporaryFolder& folder, const SoundFormat& format,
              const std::string& name = "recorded");
    ~Recording();
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    [[nodiscard]] Sound soFar() const;
    /// All frames up to a third of a second of silence that was recorded after the call. Call it
    /// when the player has gone, once.
    [[nodiscard]] Sound finish();

  private:
    std::string file_;
    SoundFormat format_;
    int descriptor_ = -1;
    std::unique_ptr<Kept> recorder_;
};

/// Of the sink's monitor.
[[nodiscard]] std::unique_ptr<Recording> recordMonitor(const Environment& environment,
                                                       const TemporaryFolder& folder,
                                                       const SoundFormat& format,
                                                       const std::string& sink = "cap");

/// Private folders for a server and its clients, which hear nothing of the user's own.
[[nodiscard]] Environment privateFolders(const TemporaryFolder& folder);

}  // namespace tqtest
