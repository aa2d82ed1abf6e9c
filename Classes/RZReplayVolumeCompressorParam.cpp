#include "RZReplayVolumeCompressorParam.h"

RZReplayVolumeCompressorParam::RZReplayVolumeCompressorParam(BOOL enable)
    : enable_(enable),
      attackTime_(0.05F),
      releaseTime_(0.1F),
      sideChainThreshold_(-40.0F),
      threshold_(-15.0F) {
}

std::shared_ptr<RZReplayVolumeCompressorParam> RZReplayVolumeCompressorParam::copy() const {
    auto other = std::make_shared<RZReplayVolumeCompressorParam>();
    other->setEnable(enable());
    other->setAttackTime(attackTime());
    other->setReleaseTime(releaseTime());
    other->setSideChainThreshold(sideChainThreshold());
    other->setThreshold(threshold());
    return other;
}
