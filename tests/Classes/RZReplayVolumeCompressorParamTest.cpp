#include "RZReplayVolumeCompressorParam.h"

#include <gtest/gtest.h>

TEST(RZReplayVolumeCompressorParamTest, PlainRecordAndItsCopyAreAllZero) {
    const RZReplayVolumeCompressorParam param;
    const auto copy = param.copy();
    for (const auto* record :
         {&param, static_cast<const RZReplayVolumeCompressorParam*>(copy.get())}) {
        EXPECT_FALSE(record->enable());
        EXPECT_EQ(0.0F, record->attackTime());
        EXPECT_EQ(0.0F, record->releaseTime());
        EXPECT_EQ(0.0F, record->sideChainThreshold());
        EXPECT_EQ(0.0F, record->threshold());
    }
}

TEST(RZReplayVolumeCompressorParamTest, RecordMadeWithASwitchHasTheUsualValues) {
    for (const BOOL enable : {YES, NO}) {
        const RZReplayVolumeCompressorParam param(enable);
        EXPECT_EQ(enable, param.enable());
        EXPECT_EQ(0.05F, param.attackTime());
        EXPECT_EQ(0.1F, param.releaseTime());
        EXPECT_EQ(-40.0F, param.sideChainThreshold());
        EXPECT_EQ(-15.0F, param.threshold());
    }
}

TEST(RZReplayVolumeCompressorParamTest, CopyHasEveryFieldAndIsARecordOfItsOwn) {
    RZReplayVolumeCompressorParam param;
    param.setEnable(YES);
    param.setAttackTime(1.5F);
    param.setReleaseTime(2.5F);
    param.setSideChainThreshold(-3.5F);
    param.setThreshold(-4.5F);
    const auto copy = param.copy();
    param.setEnable(NO);
    param.setThreshold(0.0F);
    EXPECT_TRUE(copy->enable());
    EXPECT_EQ(1.5F, copy->attackTime());
    EXPECT_EQ(2.5F, copy->releaseTime());
    EXPECT_EQ(-3.5F, copy->sideChainThreshold());
    EXPECT_EQ(-4.5F, copy->threshold());
}
