#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"
#include "support/servers/Kept.h"
#include "support/sound/Sound.h"

namespace tqtest {

/// What a sink's monitor gives, from the moment that the object exists on.
class MonitorRecording {
  public:
    /// Returns when the first frames are there: nothing that is played afterwards is missed.
    MonitorRecording(const Environment& environment, const TemporaryFolder& folder,
                     const SoundFormat& format);
    ~MonitorRecording();
    MonitorRecording(const MonitorRecording&) = delete;
    MonitorRecording& operator=(const MonitorRecording&) = delete;

    /// All frames up to a third of a second of silence that was recorded after the call. Call it
    /// when the player has gone, once.
    [[nodiscard]] Sound finish();

  private:
    [[nodiscard]] Sound soFar() const;

    std::string file_;
    SoundFormat format_;
    int descriptor_ = -1;
    std::unique_ptr<Kept> recorder_;
};

/// PulseAudio without a device, a bus or a screen: one null sink "cap", which is the default, and
/// its monitor. The sink keeps the time of the wall clock.
class PulseServer {
  public:
    explicit PulseServer(const SoundFormat& format = {});

    /// For programs that shall play here.
    [[nodiscard]] const Environment& environment() const { return environment_; }
    [[nodiscard]] std::unique_ptr<MonitorRecording> record() const;
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }
    [[nodiscard]] std::string socket() const { return folder_.file("pulse.sock"); }

  private:
    TemporaryFolder folder_;  // outlives the server that has files in it
    SoundFormat format_;
    Environment environment_;
    std::unique_ptr<Kept> server_;
};

}  // namespace tqtest
