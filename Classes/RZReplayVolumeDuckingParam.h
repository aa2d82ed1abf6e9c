#pragma once

#include <Foundation/NSObjCRuntime.h>

#include <atomic>
#include <memory>

#include "TQAudioRecordExport.h"

/// How the host's own output is pulled down while an outside level is above a threshold. Every
/// field is atomic on its own.
class TQ_RECORD_EXPORT RZReplayVolumeDuckingParam {
  public:
    /// Every field zero.
    RZReplayVolumeDuckingParam() = default;
    /// The usual values: attack 0.2 s, release 1 s, hold 1 s, threshold -30 dB, gain -20 dB.
    explicit RZReplayVolumeDuckingParam(BOOL enable);
    RZReplayVolumeDuckingParam(const RZReplayVolumeDuckingParam&) = delete;
    RZReplayVolumeDuckingParam& operator=(const RZReplayVolumeDuckingParam&) = delete;
    /// A new record with every field of this one.
    [[nodiscard]] std::shared_ptr<RZReplayVolumeDuckingParam> copy() const;

    [[nodiscard]] BOOL enable() const { return enable_; }
    void setEnable(BOOL enable) { enable_ = enable; }
    /// Seconds, above 0.
    [[nodiscard]] float attackTime() const { return attackTime_; }
    void setAttackTime(float seconds) { attackTime_ = seconds; }
    /// Seconds, above 0.
    [[nodiscard]] float releaseTime() const { return releaseTime_; }
    void setReleaseTime(float seconds) { releaseTime_ = seconds; }
    /// Seconds, 0 or more.
    [[nodiscard]] float holdTime() const { return holdTime_; }
    void setHoldTime(float seconds) { holdTime_ = seconds; }
    /// Decibels; ducking starts while the ducking volume is above it.
    [[nodiscard]] float threshold() const { return threshold_; }
    void setThreshold(float decibels) { threshold_ = decibels; }
    /// Decibels, 0 or less; the gain while ducked.
    [[nodiscard]] float targetGain() const { return targetGain_; }
    void setTargetGain(float decibels) { targetGain_ = decibels; }

  private:
    std::atomic<bool> enable_{false};
    std::atomic<float> attackTime_{0};
    std::atomic<float> releaseTime_{0};
    std::atomic<float> holdTime_{0};
    std::atomic<float> threshold_{0};
    std::atomic<float> targetGain_{0};
};
