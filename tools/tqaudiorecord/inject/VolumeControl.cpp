#include "inject/VolumeControl.h"

#include <algorithm>

namespace tqrecorder {
namespace {

/// The library wants times above 0.
constexpr float kShortest = 0.001F;
/// Loud enough for any threshold.
constexpr float kFullScale = 0;

}  // namespace

VolumeControl::~VolumeControl() {
    end();
}

bool VolumeControl::begin(const TapSettings& settings) {
    if (!settings.duck && !settings.compress) {
        return true;
    }
    if (volume_ == nullptr && tq_volume_open(&volume_) != TQ_OK) {
        return false;
    }
    duckAlways_ = settings.duckAlways;
    bool done = true;
    if (settings.duck) {
        tq_ducking ducking{};
        ducking.size = sizeof ducking;
        isDucking_ = tq_ducking_defaults(&ducking) == TQ_OK;
        ducking.attack_seconds = std::max(settings.attackSeconds, kShortest);
        ducking.release_seconds = std::max(settings.releaseSeconds, kShortest);
        ducking.target_gain_db = settings.duckDecibels;
        isDucking_ = isDucking_ && tq_volume_set_ducking(volume_, &ducking) == TQ_OK;
        done = isDucking_;
    }
    if (settings.compress) {
        tq_compressor compressor{};
        compressor.size = sizeof compressor;
        bool isCompressing = tq_compressor_defaults(&compressor) == TQ_OK;
        compressor.attack_seconds = std::max(settings.attackSeconds, kShortest);
        compressor.release_seconds = std::max(settings.releaseSeconds, kShortest);
        compressor.threshold_db = settings.compressThresholdDecibels;
        isCompressing = isCompressing && tq_volume_set_compressor(volume_, &compressor) == TQ_OK;
        done = done && isCompressing;
    }
    return done;
}

void VolumeControl::follow(float decibels) {
    if (isDucking_) {
        (void)tq_volume_set_ducking_level(volume_, duckAlways_ ? kFullScale : decibels);
    }
}

void VolumeControl::end() {
    if (volume_ != nullptr) {
        (void)tq_volume_close(volume_);
    }
    volume_ = nullptr;
    isDucking_ = false;
}

}  // namespace tqrecorder
