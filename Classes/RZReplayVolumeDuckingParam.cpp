#include "RZReplayVolumeDuckingParam.h"

RZReplayVolumeDuckingParam::RZReplayVolumeDuckingParam(BOOL enable)
    : enable_(enable),
      attackTime_(0.2F),
      releaseTime_(1.0F),
      holdTime_(1.0F),
      threshold_(-30.0F),
      targetGain_(-20.0F) {
}

std::shared_ptr<RZReplayVolumeDuckingParam> RZReplayVolumeDuckingParam::copy() const {
    auto other = std::make_shared<RZReplayVolumeDuckingParam>();
    other->setEnable(enable());
    other->setAttackTime(attackTime());
    other->setReleaseTime(releaseTime());
    other->setHoldTime(holdTime());
    other->setThreshold(threshold());
    other->setTargetGain(targetGain());
    return other;
}
