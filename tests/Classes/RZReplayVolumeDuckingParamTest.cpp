#include "RZReplayVolumeDuckingParam.h"

#include <gtest/gtest.h>

TEST(RZReplayVolumeDuckingParamTest, PlainRecordAndItsCopyAreAllZero) {
    const RZReplayVolumeDuckingParam param;
    const auto copy = param.copy();
    for (const auto* record :
         {&param, static_cast<const RZReplayVolumeDuckingParam*>(copy.get())}) {
        EXPECT_FALSE(record->enable());
        EXPECT_EQ(0.0F, record->attackTime());
        EXPECT_EQ(0.0F, record->releaseTime());
        EXPECT_EQ(0.0F, record->holdTime());
        EXPECT_EQ(0.0F, record->threshold());
        EXPECT_EQ(0.0F, record->targetGain());
    }
}

TEST(RZReplayVolumeDuckingParamTest, RecordMadeWithASwitchHasTheUsualValues) {
    for (const BOOL enable : {YES, NO}) {
        const RZReplayVolumeDuckingParam param(enable);
        EXPECT_EQ(enable, param.enable());
        EXPECT_EQ(0.2F, param.attackTime());
        EXPECT_EQ(1.0F, param.releaseTime());
        EXPECT_EQ(1.0F, param.holdTime());
        EXPECT_EQ(-30.0F, param.threshold());
        EXPECT_EQ(-20.0F, param.targetGain());
    }
}

TEST(RZReplayVolumeDuckingParamTest, CopyHasEveryFieldAndIsARecordOfItsOwn) {
    RZReplayVolumeDuckingParam param;
    param.setEnable(YES);
    param.setAttackTime(1.5F);
    param.setReleaseTime(2.5F);
    param.setHoldTime(3.5F);
    param.setThreshold(-4.5F);
    param.setTargetGain(-5.5F);
    const auto copy = param.copy();
    param.setEnable(NO);
    param.setHoldTime(0.0F);
    EXPECT_TRUE(copy->enable());
    EXPECT_EQ(1.5F, copy->attackTime());
    EXPECT_EQ(2.5F, copy->releaseTime());
    EXPECT_EQ(3.5F, copy->holdTime());
    EXPECT_EQ(-4.5F, copy->threshold());
    EXPECT_EQ(-5.5F, copy->targetGain());
}
