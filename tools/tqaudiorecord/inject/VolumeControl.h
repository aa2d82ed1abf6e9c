#pragma once

#include <TQAudioRecord/tq_capture.h>

#include <limits>

#include "ipc/TapSettings.h"

namespace tqrecorder {

/// No user's order: as the recorder's options ask.
inline constexpr float kAsSettings = std::numeric_limits<float>::quiet_NaN();

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
    /// Tells the level in dBFS that decides on ducking; new units learn of it here only. `order` is
    /// what the user asked for meanwhile, as in the shared page.
    void follow(float decibels, float order);
    /// Switches off what was switched on.
    void end();

  private:
    [[nodiscard]] bool startDucking(float decibels);

    TapSettings settings_;
    float order_ = kAsSettings;
    tq_volume* volume_ = nullptr;
    bool isDucking_ = false;
    bool duckAlways_ = false;
};

}  // namespace tqrecorder
