#pragma once

#include <TQAudioRecord/tq_capture.h>

#include "ipc/TapSettings.h"

namespace tqrecorder {

/// Ducking and compression of this process's own output, as the recorder's options ask for.
/// [one host thread at a time]
class VolumeControl {
  public:
    VolumeControl() = default;
    ~VolumeControl();
    VolumeControl(const VolumeControl&) = delete;
    VolumeControl& operator=(const VolumeControl&) = delete;

    /// Switches on what is wanted. False when the library refuses something.
    [[nodiscard]] bool begin(const TapSettings& settings);
    /// Tells the level in dBFS that decides on ducking; new units learn of it here only.
    void follow(float decibels);
    /// Switches off what was switched on.
    void end();

  private:
    tq_volume* volume_ = nullptr;
    bool isDucking_ = false;
    bool duckAlways_ = false;
};

}  // namespace tqrecorder
