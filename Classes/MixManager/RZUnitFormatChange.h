#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <memory>

#include "RZReplayAudioUnitObject.h"

/// [any thread] The side of the unit that its capture object records: a taken-over callback sees
/// the application's, a render notify the device's.
[[nodiscard]] AudioUnitScope RZCapturedScope(const RZReplayAudioUnitObject& obj) noexcept;

/// [host thread] A change of a unit's format, open for as long as this lives. Opening it waits
/// until the private graph has read its last block in the old format.
class RZUnitFormatChange {
  public:
    explicit RZUnitFormatChange(std::shared_ptr<RZReplayAudioUnitObject> obj);
    ~RZUnitFormatChange() { isTakenBack_ ? obj_->takeBackFormatChange() : obj_->endFormatChange(); }
    RZUnitFormatChange(const RZUnitFormatChange&) = delete;
    RZUnitFormatChange& operator=(const RZUnitFormatChange&) = delete;

    [[nodiscard]] const std::shared_ptr<RZReplayAudioUnitObject>& object() const { return obj_; }
    /// The format is what it was: the block that is being rendered is none of two formats.
    void takeBack() noexcept { isTakenBack_ = true; }

  private:
    bool isTakenBack_ = false;
    std::shared_ptr<RZReplayAudioUnitObject> obj_;
};

/// [host thread] The capture object whose format a call of AudioUnitSetProperty with these
/// arguments is about to change while the unit plays; null when there is none.
[[nodiscard]] std::shared_ptr<RZReplayAudioUnitObject> RZUnitToReformat(
    AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
    const void* data, UInt32 size);
