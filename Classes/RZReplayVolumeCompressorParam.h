#pragma once

#include <Foundation/NSObjCRuntime.h>

#include <atomic>
#include <memory>

#include "TQAudioRecordExport.h"

/// How peaks of the host's own output are held down. Every field is atomic on its own.
class TQ_RECORD_EXPORT RZReplayVolumeCompressorParam {
  public:
    /// Every field zero.
    RZReplayVolumeCompressorParam() = default;
    /// The usual values: attack 0.05 s, release 0.1 s, side chain -40 dB, threshold -15 dB.
    explicit RZReplayVolumeCompressorParam(BOOL enable);
    RZReplayVolumeCompressorParam(const RZReplayVolumeCompressorParam&) = delete;
    RZReplayVolumeCompressorParam& operator=(const RZReplayVolumeCompressorParam&) = delete;
    /// A new record with every field of this one.
    [[nodiscard]] std::shared_ptr<RZReplayVolumeCompressorParam> copy() const;

    [[nodiscard]] BOOL enable() const { return enable_; }
    void setEnable(BOOL enable) { enable_ = enable; }
    /// Seconds, above 0.
    [[nodiscard]] float attackTime() const { return attackTime_; }
    void setAttackTime(float seconds) { attackTime_ = seconds; }
    /// Seconds, above 0.
    [[nodiscard]] float releaseTime() const { return releaseTime_; }
    void setReleaseTime(float seconds) { releaseTime_ = seconds; }
    /// Decibels; the threshold tightens while the compressor volume is above it.
    [[nodiscard]] float sideChainThreshold() const { return sideChainThreshold_; }
    void setSideChainThreshold(float decibels) { sideChainThreshold_ = decibels; }
    /// Decibels; peaks above it are held down.
    [[nodiscard]] float threshold() const { return threshold_; }
    void setThreshold(float decibels) { threshold_ = decibels; }

  private:
    std::atomic<bool> enable_{false};
    std::atomic<float> attackTime_{0};
    std::atomic<float> releaseTime_{0};
    std::atomic<float> sideChainThreshold_{0};
    std::atomic<float> threshold_{0};
};
