#include "inject/VolumeControl.h"

#include <algorithm>
#include <cmath>

namespace tqrecorder {
namespace {

/// The library wants times above 0.
constexpr float kShortest = 0.001F;
/// Loud enough for any threshold.
constexpr float kFullScale = 0;
constexpr float kSilence = -1000;
/// dB.
constexpr float kLeastGain = -96;

}  // namespace

VolumeControl::~VolumeControl() {
    end();
}

bool VolumeControl::startDucking(float decibels) {
    if (volume_ == nullptr && tq_volume_open(&volume_) != TQ_OK) {
        return false;
    }
    tq_ducking ducking{};
    ducking.size = sizeof ducking;
    isDucking_ = tq_ducking_defaults(&ducking) == TQ_OK;
    ducking.attack_seconds = std::max(settings_.attackSeconds, kShortest);
    ducking.release_seconds = std::max(settings_.releaseSeconds, kShortest);
    ducking.target_gain_db = decibels;
    isDucking_ = isDucking_ && tq_volume_set_ducking(volume_, &ducking) == TQ_OK;
    return isDucking_;
}

bool VolumeControl::begin(const TapSettings& settings) {
    settings_ = settings;
    if (!settings.duck && !settings.compress) {
        return true;
    }
    if (volume_ == nullptr && tq_volume_open(&volume_) != TQ_OK) {
        return false;
    }
    duckAlways_ = settings.duckAlways;
    bool done = true;
    if (settings.duck) {
        done = startDucking(settings.duckDecibels);
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

void VolumeControl::follow(float decibels, float order) {
    const bool isOrdered = !std::isnan(order);
    if (isOrdered && order <= 0 && order != order_) {
        (void)startDucking(std::max(order, kLeastGain));
    }
    order_ = order;
    if (isDucking_) {
        const bool isAlways = isOrdered ? order <= 0 : duckAlways_;
        const float level = isOrdered ? kSilence : decibels;
        (void)tq_volume_set_ducking_level(volume_, isAlways ? kFullScale : level);
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
