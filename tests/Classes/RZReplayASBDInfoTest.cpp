#include "RZReplayASBDInfo.h"

#include <gtest/gtest.h>

namespace {

/// Every field another number, so that a mixed-up one shows.
constexpr AudioStreamBasicDescription kDescription{48000.5, 1, 2, 3, 4, 5, 6, 7, 8};

void expectFormat(const RZReplayASBDInfo& info) {
    EXPECT_EQ(48000.5, info.sampleRate());
    EXPECT_EQ(2U, info.formatFlags());
    EXPECT_EQ(3U, info.bytesPerPacket());
    EXPECT_EQ(5, info.bytesPerFrame());
    EXPECT_EQ(6, info.channelsPerFrame());
    EXPECT_EQ(7, info.bitsPerChannel());
}

}  // namespace

TEST(RZReplayASBDInfoTest, PlainRecordIsAllZero) {
    const RZReplayASBDInfo info;
    EXPECT_EQ(0, info.trackId());
    EXPECT_EQ(0.0, info.sampleRate());
    EXPECT_EQ(0U, info.bytesPerPacket());
    EXPECT_EQ(0, info.bytesPerFrame());
    EXPECT_EQ(0, info.channelsPerFrame());
    EXPECT_EQ(0, info.bitsPerChannel());
    EXPECT_EQ(0U, info.formatFlags());
    EXPECT_EQ(0U, info.timeStamp());
    EXPECT_EQ(0.0, info.volume());
}

TEST(RZReplayASBDInfoTest, MadeFromADescriptionItHasItsFormatAndFullVolume) {
    const auto info = RZReplayASBDInfo::formatInfoWithDesc(kDescription);
    expectFormat(*info);
    EXPECT_EQ(1.0, info->volume());
    EXPECT_EQ(0, info->trackId());
    EXPECT_EQ(0U, info->timeStamp());
}

TEST(RZReplayASBDInfoTest, EveryCallMakesARecordOfItsOwn) {
    EXPECT_NE(RZReplayASBDInfo::formatInfoWithDesc(kDescription),
              RZReplayASBDInfo::formatInfoWithDesc(kDescription));
}

TEST(RZReplayASBDInfoTest, UpdateKeepsTrackAndTimeStampAndSetsFullVolume) {
    RZReplayASBDInfo info;
    info.setTrackId(5);
    info.setTimeStamp(123456789012345U);
    info.setVolume(0.25);
    info.updateInfoWithDesc(kDescription);
    expectFormat(info);
    EXPECT_EQ(1.0, info.volume());
    EXPECT_EQ(5, info.trackId());
    EXPECT_EQ(123456789012345U, info.timeStamp());
}

TEST(RZReplayASBDInfoTest, EveryPropertyKeepsWhatIsSet) {
    RZReplayASBDInfo info;
    info.setTrackId(-1);
    info.setSampleRate(22050.25);
    info.setBytesPerPacket(0xFFFFFFFFU);
    info.setBytesPerFrame(2);
    info.setChannelsPerFrame(3);
    info.setBitsPerChannel(4);
    info.setFormatFlags(0x80000001U);
    info.setTimeStamp(0xFFFFFFFFFFFFFFFFU);
    info.setVolume(0.5);
    EXPECT_EQ(-1, info.trackId());
    EXPECT_EQ(22050.25, info.sampleRate());
    EXPECT_EQ(0xFFFFFFFFU, info.bytesPerPacket());
    EXPECT_EQ(2, info.bytesPerFrame());
    EXPECT_EQ(3, info.channelsPerFrame());
    EXPECT_EQ(4, info.bitsPerChannel());
    EXPECT_EQ(0x80000001U, info.formatFlags());
    EXPECT_EQ(0xFFFFFFFFFFFFFFFFU, info.timeStamp());
    EXPECT_EQ(0.5, info.volume());
}
