#include "inject/VolumeControl.h"

#include <TQAudioRecord/TQAudioRecord.h>

#include <algorithm>

namespace tqrecorder {
namespace {

/// The library wants times above 0.
constexpr float kShortest = 0.001F;
/// Loud enough for any threshold.
constexpr float kFullScale = 0;

}  // namespace

VolumeControl::VolumeControl() = default;
VolumeControl::~VolumeControl() = default;

bool VolumeControl::begin(const TapSettings& settings) {
    if (!settings.duck && !settings.compress) {
        return true;
    }
    controller_ = std::make_unique<RZReplayVolumeController>();
    duckAlways_ = settings.duckAlways;
    bool done = true;
    if (settings.duck) {
        RZReplayVolumeDuckingParam param(YES);
        param.setAttackTime(std::max(settings.attackSeconds, kShortest));
        param.setReleaseTime(std::max(settings.releaseSeconds, kShortest));
        param.setTargetGain(settings.duckDecibels);
        isDucking_ = controller_->enableDucking(&param) == 0;
        done = isDucking_;
    }
    if (settings.compress) {
        RZReplayVolumeCompressorParam param(YES);
        param.setAttackTime(std::max(settings.attackSeconds, kShortest));
        param.setReleaseTime(std::max(settings.releaseSeconds, kShortest));
        param.setThreshold(settings.compressThresholdDecibels);
        isCompressing_ = controller_->enableCompressor(&param) == 0;
        done = done && isCompressing_;
    }
    return done;
}

void VolumeControl::follow(float decibels) {
    if (isDucking_) {
        controller_->updateDuckingVolume(duckAlways_ ? kFullScale : decibels, YES);
    }
}

void VolumeControl::end() {
    if (isDucking_) {
        const RZReplayVolumeDuckingParam off(NO);
        controller_->enableDucking(&off);
    }
    if (isCompressing_) {
        const RZReplayVolumeCompressorParam off(NO);
        controller_->enableCompressor(&off);
    }
    isDucking_ = false;
    isCompressing_ = false;
}

}  // namespace tqrecorder
