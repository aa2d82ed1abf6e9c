#include <Foundation/NSException.h>
#include <RZReplayVolumeController.h>

#include <cmath>

#include "Call.h"
#include "HandleTable.h"

// Ducking and compression.

namespace {

struct Volume {
    RZReplayVolumeController controller;

    /// What this handle has not switched on stays as it is.
    void switchOff() {
        controller.enableDucking(nullptr);
        controller.enableCompressor(nullptr);
    }
    ~Volume() {
        // A controller that goes leaves its effects on for good; a handle does not.
        NSCallGuarded([this] { switchOff(); });
    }
};

using Volumes = tqcapi::HandleTable<tq_volume, Volume>;

tq_result resultOf(std::int32_t code) {
    switch (code) {
        case 0:
            return TQ_OK;
        case 11:
            return TQ_ERROR_NOT_ON;
        case 13:
            return TQ_ERROR_OWNED_BY_ANOTHER;
        case 103:
            return TQ_ERROR_HOOKS_NOT_WORKING;
        default:
            return TQ_ERROR_UNKNOWN;
    }
}

bool isTime(float seconds) {
    return std::isfinite(seconds) && seconds > 0;
}

tq_result setDucking(Volume& volume, const tq_ducking& given) {
    if (given.size < sizeof given) {
        return TQ_ERROR_SIZE;
    }
    if (!isTime(given.attack_seconds) || !isTime(given.release_seconds) ||
        !std::isfinite(given.hold_seconds) || given.hold_seconds < 0 ||
        !std::isfinite(given.threshold_db) || !std::isfinite(given.target_gain_db) ||
        given.target_gain_db > 0) {
        return TQ_ERROR_VALUE;
    }
    RZReplayVolumeDuckingParam param(YES);
    param.setAttackTime(given.attack_seconds);
    param.setReleaseTime(given.release_seconds);
    param.setHoldTime(given.hold_seconds);
    param.setThreshold(given.threshold_db);
    param.setTargetGain(given.target_gain_db);
    return resultOf(volume.controller.enableDucking(&param));
}

tq_result setCompressor(Volume& volume, const tq_compressor& given) {
    if (given.size < sizeof given) {
        return TQ_ERROR_SIZE;
    }
    if (!isTime(given.attack_seconds) || !isTime(given.release_seconds) ||
        !std::isfinite(given.side_chain_threshold_db) || !std::isfinite(given.threshold_db)) {
        return TQ_ERROR_VALUE;
    }
    RZReplayVolumeCompressorParam param(YES);
    param.setAttackTime(given.attack_seconds);
    param.setReleaseTime(given.release_seconds);
    param.setSideChainThreshold(given.side_chain_threshold_db);
    param.setThreshold(given.threshold_db);
    return resultOf(volume.controller.enableCompressor(&param));
}

/// Runs a call on a handle that is there.
template <class Body>
tq_result withVolume(const tq_volume* handle, Body&& body) noexcept {
    return tqcapi::call([&] {
        const auto volume = Volumes::shared().find(handle);
        return volume ? body(*volume) : TQ_ERROR_HANDLE;
    });
}

}  // namespace

tq_result tq_ducking_defaults(tq_ducking* ducking) {
    return tqcapi::callAnywhere([&] {
        const RZReplayVolumeDuckingParam usual(YES);
        return tqcapi::answer(ducking, {0, usual.attackTime(), usual.releaseTime(),
                                        usual.holdTime(), usual.threshold(), usual.targetGain()});
    });
}

tq_result tq_compressor_defaults(tq_compressor* compressor) {
    return tqcapi::callAnywhere([&] {
        const RZReplayVolumeCompressorParam usual(YES);
        return tqcapi::answer(compressor, {0, usual.attackTime(), usual.releaseTime(),
                                           usual.sideChainThreshold(), usual.threshold()});
    });
}

tq_result tq_volume_open(tq_volume** volume) {
    return tqcapi::call([&] {
        if (volume == nullptr) {
            return TQ_ERROR_NULL;
        }
        *volume = Volumes::shared().add(std::make_shared<Volume>());
        return TQ_OK;
    });
}

tq_result tq_volume_close(tq_volume* volume) {
    return withVolume(volume, [&](Volume& object) {
        // First, while the handle is still there to ask again: it may take memory.
        object.switchOff();
        return Volumes::shared().take(volume) ? TQ_OK : TQ_ERROR_HANDLE;
    });
}

tq_result tq_volume_set_ducking(tq_volume* volume, const tq_ducking* ducking) {
    return withVolume(volume, [&](Volume& object) {
        return ducking == nullptr ? resultOf(object.controller.enableDucking(nullptr))
                                  : setDucking(object, *ducking);
    });
}

tq_result tq_volume_set_compressor(tq_volume* volume, const tq_compressor* compressor) {
    return withVolume(volume, [&](Volume& object) {
        return compressor == nullptr ? resultOf(object.controller.enableCompressor(nullptr))
                                     : setCompressor(object, *compressor);
    });
}

tq_result tq_volume_set_ducking_level(tq_volume* volume, float db) {
    return withVolume(volume, [&](Volume& object) {
        return std::isnan(db) ? TQ_ERROR_VALUE
                              : resultOf(object.controller.updateDuckingVolume(db, YES));
    });
}

tq_result tq_volume_set_compressor_level(tq_volume* volume, float db) {
    return withVolume(volume, [&](Volume& object) {
        return std::isnan(db) ? TQ_ERROR_VALUE
                              : resultOf(object.controller.updateCompressorVolume(db, YES));
    });
}
