#include "RZReplayAudioUnitBuffer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

namespace {

AudioBuffer asBuffer(std::vector<char>& bytes) {
    return {1, static_cast<UInt32>(bytes.size()), bytes.data()};
}

std::vector<char> rising(std::size_t count) {
    std::vector<char> bytes(count);
    std::iota(bytes.begin(), bytes.end(), char{0});
    return bytes;
}

/// Both sides behave alike: pre is NO, post is YES.
class RZReplayAudioUnitBufferSideTest : public testing::TestWithParam<bool> {
  protected:
    std::size_t write(std::vector<char> bytes) {
        return buffer.writeAudioBuffer(asBuffer(bytes), static_cast<UInt32>(bytes.size()),
                                       GetParam());
    }
    korva_audio_utils::RingBuffer* ring(bool post) {
        return post ? buffer.postRingBuffer() : buffer.preRingBuffer();
    }
    RZReplayAudioUnitBuffer buffer;
};

}  // namespace

TEST_P(RZReplayAudioUnitBufferSideTest, RingIsMadeByTheFirstWriteOfItsSideOnly) {
    EXPECT_EQ(nullptr, ring(true));
    EXPECT_EQ(nullptr, ring(false));
    write({1, 2, 3});
    EXPECT_NE(nullptr, ring(GetParam()));
    EXPECT_EQ(nullptr, ring(!GetParam()));
}

TEST_P(RZReplayAudioUnitBufferSideTest, RingStartsWith8192BytesAndMayGrowTo409600) {
    write({1});
    EXPECT_EQ(8192U, ring(GetParam())->Capacity());
    EXPECT_EQ(1U, ring(GetParam())->ElementSize());
    EXPECT_EQ(409600U, ring(GetParam())->MaxCapacity());
}

TEST_P(RZReplayAudioUnitBufferSideTest, WhatIsWrittenIsReadBack) {
    const std::vector<char> bytes = rising(1000);
    EXPECT_EQ(1000U, write(bytes));
    EXPECT_EQ(1000U, buffer.getRingBufferSize(GetParam()));
    std::vector<char> out(1000);
    EXPECT_EQ(1000U, buffer.readAudioBuffer(asBuffer(out), 1000, GetParam()));
    EXPECT_EQ(bytes, out);
    EXPECT_EQ(0U, buffer.getRingBufferSize(GetParam()));
}

TEST_P(RZReplayAudioUnitBufferSideTest, OnlyTheSizeGivenIsWritten) {
    std::vector<char> bytes = rising(10);
    EXPECT_EQ(4U, buffer.writeAudioBuffer(asBuffer(bytes), 4, GetParam()));
    EXPECT_EQ(4U, buffer.getRingBufferSize(GetParam()));
}

TEST_P(RZReplayAudioUnitBufferSideTest, RingGrowsWithALargerBlock) {
    EXPECT_EQ(20000U, write(rising(20000)));
    EXPECT_EQ(32768U, ring(GetParam())->Capacity());
    EXPECT_EQ(20000U, buffer.getRingBufferSize(GetParam()));
}

TEST_P(RZReplayAudioUnitBufferSideTest, BlockBeyondTheCeilingIsRefusedWhole) {
    EXPECT_EQ(0U, write(rising(409600)));
    EXPECT_EQ(0U, buffer.getRingBufferSize(GetParam()));
    EXPECT_EQ(409599U, write(rising(409599)));
    EXPECT_EQ(0U, write({1}));
    EXPECT_EQ(409599U, buffer.getRingBufferSize(GetParam()));
}

TEST_P(RZReplayAudioUnitBufferSideTest, ReadingANeverWrittenSideTouchesNothing) {
    std::vector<char> other{1, 2, 3};
    buffer.writeAudioBuffer(asBuffer(other), 3, !GetParam());
    std::vector<char> out{9, 9, 9};
    EXPECT_EQ(0U, buffer.readAudioBuffer(asBuffer(out), 3, GetParam()));
    EXPECT_EQ((std::vector<char>{9, 9, 9}), out);
    EXPECT_EQ(0U, buffer.getRingBufferSize(GetParam()));
    EXPECT_EQ(nullptr, ring(GetParam())) << "reading makes no ring";
}

TEST_P(RZReplayAudioUnitBufferSideTest, ReadOfMoreThanThereIsConsumesNothing) {
    write({1, 2, 3});
    std::vector<char> out{9, 9, 9, 9};
    EXPECT_EQ(0U, buffer.readAudioBuffer(asBuffer(out), 4, GetParam()));
    EXPECT_EQ((std::vector<char>{9, 9, 9, 9}), out);
    EXPECT_EQ(3U, buffer.getRingBufferSize(GetParam()));
}

TEST_P(RZReplayAudioUnitBufferSideTest, NullMemoryIsRefused) {
    EXPECT_EQ(0U, buffer.writeAudioBuffer({1, 4, nullptr}, 4, GetParam()));
    write({1, 2, 3, 4});
    EXPECT_EQ(0U, buffer.readAudioBuffer({1, 4, nullptr}, 4, GetParam()));
    EXPECT_EQ(4U, buffer.getRingBufferSize(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(BothSides, RZReplayAudioUnitBufferSideTest, testing::Bool(),
                         [](const auto& test) { return test.param ? "Post" : "Pre"; });

TEST(RZReplayAudioUnitBufferTest, SidesAreApart) {
    RZReplayAudioUnitBuffer buffer;
    std::vector<char> pre{1, 1};
    std::vector<char> post{2, 2, 2};
    buffer.writeAudioBuffer(asBuffer(pre), 2, NO);
    buffer.writeAudioBuffer(asBuffer(post), 3, YES);
    EXPECT_EQ(2U, buffer.getRingBufferSize(NO));
    EXPECT_EQ(3U, buffer.getRingBufferSize(YES));
    std::vector<char> out(2);
    buffer.readAudioBuffer(asBuffer(out), 2, YES);
    EXPECT_EQ((std::vector<char>{2, 2}), out);
}

TEST(RZReplayAudioUnitBufferTest, CleaningEmptiesThePostSideOnly) {
    RZReplayAudioUnitBuffer buffer;
    std::vector<char> bytes{1, 2};
    buffer.writeAudioBuffer(asBuffer(bytes), 2, NO);
    buffer.writeAudioBuffer(asBuffer(bytes), 2, YES);
    const auto* const ring = buffer.postRingBuffer();
    buffer.cleanPostRingBuffer();
    EXPECT_EQ(2U, buffer.getRingBufferSize(NO));
    EXPECT_EQ(0U, buffer.getRingBufferSize(YES));
    EXPECT_EQ(ring, buffer.postRingBuffer()) << "emptied, not freed";
}

TEST(RZReplayAudioUnitBufferTest, CleaningWithoutAPostRingMakesNone) {
    RZReplayAudioUnitBuffer buffer;
    buffer.cleanPostRingBuffer();
    EXPECT_EQ(nullptr, buffer.postRingBuffer());
}

TEST(RZReplayAudioUnitBufferTest, CopyBufferStartsEmpty) {
    const RZReplayAudioUnitBuffer buffer;
    EXPECT_EQ(0U, buffer.copyBuffer().mNumberChannels);
    EXPECT_EQ(0U, buffer.copyBuffer().mDataByteSize);
    EXPECT_EQ(nullptr, buffer.copyBuffer().mData);
}

TEST(RZReplayAudioUnitBufferTest, CopyBufferHasZeroedMemoryOfTheSizeAskedFor) {
    RZReplayAudioUnitBuffer buffer;
    const AudioBuffer copy = buffer.getCopyBufferBySize(64);
    ASSERT_NE(nullptr, copy.mData);
    EXPECT_EQ(64U, copy.mDataByteSize);
    const std::vector<char> zeros(64);
    EXPECT_EQ(0, std::memcmp(zeros.data(), copy.mData, 64));
    EXPECT_EQ(copy.mData, buffer.copyBuffer().mData);
}

TEST(RZReplayAudioUnitBufferTest, CopyBufferNeverShrinksAndKeepsItsContents) {
    RZReplayAudioUnitBuffer buffer;
    const AudioBuffer large = buffer.getCopyBufferBySize(64);
    std::memset(large.mData, 7, 64);
    for (const UInt32 size : {64U, 16U, 0U}) {
        const AudioBuffer copy = buffer.getCopyBufferBySize(size);
        EXPECT_EQ(large.mData, copy.mData);
        EXPECT_EQ(64U, copy.mDataByteSize);
        EXPECT_EQ(7, static_cast<char*>(copy.mData)[63]);
    }
}

TEST(RZReplayAudioUnitBufferTest, LargerCopyBufferIsZeroedAnew) {
    RZReplayAudioUnitBuffer buffer;
    std::memset(buffer.getCopyBufferBySize(16).mData, 7, 16);
    const AudioBuffer copy = buffer.getCopyBufferBySize(17);
    EXPECT_EQ(17U, copy.mDataByteSize);
    const std::vector<char> zeros(17);
    EXPECT_EQ(0, std::memcmp(zeros.data(), copy.mData, 17));
}

TEST(RZReplayAudioUnitBufferTest, ControllerStartsAt16000AndFollowsUpdateFS) {
    RZReplayAudioUnitBuffer buffer;
    ASSERT_NE(nullptr, buffer.volumeController());
    EXPECT_EQ(16000, buffer.volumeController()->SampleRate());
    buffer.updateFS(44100);
    EXPECT_EQ(44100, buffer.volumeController()->SampleRate());
    EXPECT_EQ(44, buffer.volumeController()->UpdateInterval());
}

TEST(RZReplayAudioUnitBufferTest, DuckingParametersReachTheController) {
    RZReplayAudioUnitBuffer buffer;
    RZReplayVolumeDuckingParam param(YES);
    param.setAttackTime(0.11F);
    param.setReleaseTime(0.22F);
    param.setHoldTime(0.33F);
    param.setThreshold(-44.0F);
    param.setTargetGain(-6.0F);
    buffer.setDuckingParam(&param);
    const auto stored = buffer.volumeController()->GetDuckingParams();
    EXPECT_TRUE(stored.enable);
    EXPECT_EQ(0.11F, stored.attackTime);
    EXPECT_EQ(0.22F, stored.releaseTime);
    EXPECT_EQ(0.33F, stored.holdTime);
    EXPECT_EQ(-44.0F, stored.threshold);
    EXPECT_EQ(-6.0F, stored.targetGain);
    EXPECT_FLOAT_EQ(std::pow(10.0F, -0.3F), buffer.volumeController()->DuckingGain())
        << "derived values follow at once";
    EXPECT_EQ(0.33F * 16000.0F, buffer.volumeController()->HoldSamples());
}

TEST(RZReplayAudioUnitBufferTest, CompressorParametersReachTheController) {
    RZReplayAudioUnitBuffer buffer;
    RZReplayVolumeCompressorParam param(YES);
    param.setAttackTime(0.01F);
    param.setReleaseTime(0.02F);
    param.setSideChainThreshold(-33.0F);
    param.setThreshold(-20.0F);
    buffer.setCompressorParam(&param);
    const auto stored = buffer.volumeController()->GetCompressorParams();
    EXPECT_TRUE(stored.enable);
    EXPECT_EQ(0.01F, stored.attackTime);
    EXPECT_EQ(0.02F, stored.releaseTime);
    EXPECT_EQ(-33.0F, stored.sideChainThreshold);
    EXPECT_EQ(-20.0F, stored.threshold);
    EXPECT_FLOAT_EQ(0.1F, buffer.volumeController()->CompressorThreshold());
}

TEST(RZReplayAudioUnitBufferTest, NullParametersChangeNothing) {
    RZReplayAudioUnitBuffer buffer;
    RZReplayVolumeDuckingParam ducking(YES);
    RZReplayVolumeCompressorParam compressor(YES);
    buffer.setDuckingParam(&ducking);
    buffer.setCompressorParam(&compressor);
    buffer.setDuckingVolume(-10.0F, YES);
    buffer.setDuckingParam(nullptr);
    buffer.setCompressorParam(nullptr);
    EXPECT_TRUE(buffer.volumeController()->GetDuckingParams().enable);
    EXPECT_TRUE(buffer.volumeController()->GetCompressorParams().enable);
    EXPECT_EQ(-10.0F, buffer.volumeController()->DuckingVolume());
}

namespace {

/// A buffer in the middle of a duck and of a compressed peak.
void bringIntoTheMiddle(RZReplayAudioUnitBuffer& buffer) {
    const RZReplayVolumeDuckingParam ducking(YES);
    const RZReplayVolumeCompressorParam compressor(YES);
    buffer.setDuckingParam(&ducking);
    buffer.setCompressorParam(&compressor);
    buffer.setDuckingVolume(-10.0F, YES);
    buffer.setCompressorVolume(-10.0F, YES);
    std::vector<float> samples(1000, 1.0F);
    buffer.processAudioData({1, 4000, samples.data()}, 1, 2);
    // From here on the duck is held, so that the counter has moved too.
    buffer.setDuckingVolume(-60.0F, YES);
    buffer.processAudioData({1, 4000, samples.data()}, 1, 2);
    ASSERT_LT(buffer.volumeController()->DuckingCurrent(), 1.0F);
    ASSERT_LT(buffer.volumeController()->CompressorCurrent(), 1.0F);
    ASSERT_EQ(1000, buffer.volumeController()->HoldCounter());
    ASSERT_EQ(2000U, buffer.volumeController()->SampleCounter());
}

}  // namespace

TEST(RZReplayAudioUnitBufferTest, SwitchingDuckingOffPutsItsStateToRest) {
    RZReplayAudioUnitBuffer buffer;
    bringIntoTheMiddle(buffer);
    const auto& controller = *buffer.volumeController();
    const float compressorCurrent = controller.CompressorCurrent();
    const RZReplayVolumeDuckingParam off(NO);
    buffer.setDuckingParam(&off);
    EXPECT_EQ(-80.0F, controller.DuckingVolume());
    EXPECT_EQ(1073741824, controller.HoldCounter());
    EXPECT_EQ(1.0F, controller.DuckingTarget());
    EXPECT_EQ(1.0F, controller.DuckingCurrent());
    EXPECT_EQ(compressorCurrent, controller.CompressorCurrent()) << "the other effect goes on";
    EXPECT_EQ(2000U, controller.SampleCounter());
}

TEST(RZReplayAudioUnitBufferTest, SwitchingTheCompressorOffPutsItsStateToRest) {
    RZReplayAudioUnitBuffer buffer;
    bringIntoTheMiddle(buffer);
    const auto& controller = *buffer.volumeController();
    const float duckingCurrent = controller.DuckingCurrent();
    const RZReplayVolumeCompressorParam off(NO);
    buffer.setCompressorParam(&off);
    EXPECT_EQ(-80.0F, controller.CompressorVolume());
    EXPECT_EQ(1.0F, controller.CompressorTarget());
    EXPECT_EQ(1.0F, controller.CompressorCurrent());
    EXPECT_EQ(0U, controller.SampleCounter());
    EXPECT_EQ(duckingCurrent, controller.DuckingCurrent()) << "the other effect goes on";
}

TEST(RZReplayAudioUnitBufferTest, SwitchingOnResetsNothing) {
    RZReplayAudioUnitBuffer buffer;
    bringIntoTheMiddle(buffer);
    const auto& controller = *buffer.volumeController();
    const float duckingCurrent = controller.DuckingCurrent();
    const float compressorCurrent = controller.CompressorCurrent();
    const RZReplayVolumeDuckingParam ducking(YES);
    const RZReplayVolumeCompressorParam compressor(YES);
    buffer.setDuckingParam(&ducking);
    buffer.setCompressorParam(&compressor);
    EXPECT_EQ(duckingCurrent, controller.DuckingCurrent());
    EXPECT_EQ(compressorCurrent, controller.CompressorCurrent());
    EXPECT_EQ(-60.0F, controller.DuckingVolume());
    EXPECT_EQ(-10.0F, controller.CompressorVolume());
    EXPECT_EQ(1000, controller.HoldCounter());
    EXPECT_EQ(2000U, controller.SampleCounter());
}

TEST(RZReplayAudioUnitBufferTest, VolumesPassOnInDecibelsAndLinear) {
    RZReplayAudioUnitBuffer buffer;
    buffer.setDuckingVolume(-12.5F, YES);
    buffer.setCompressorVolume(-7.5F, YES);
    EXPECT_EQ(-12.5F, buffer.volumeController()->DuckingVolume());
    EXPECT_EQ(-7.5F, buffer.volumeController()->CompressorVolume());
    buffer.setDuckingVolume(0.1F, NO);
    buffer.setCompressorVolume(10.0F, NO);
    EXPECT_NEAR(-20.0F, buffer.volumeController()->DuckingVolume(), 1e-4);
    EXPECT_NEAR(20.0F, buffer.volumeController()->CompressorVolume(), 1e-4);
}

TEST(RZReplayAudioUnitBufferTest, ProcessingWorksInPlaceAsTheControllerDoes) {
    const RZReplayVolumeDuckingParam ducking(YES);
    RZReplayAudioUnitBuffer buffer;
    buffer.setDuckingParam(&ducking);
    buffer.setDuckingVolume(0.0F, YES);
    korva_audio_utils::VolumeController twin(16000);
    twin.SetDuckingParams({.enable = true,
                           .attackTime = 0.2F,
                           .releaseTime = 1.0F,
                           .holdTime = 1.0F,
                           .threshold = -30.0F,
                           .targetGain = -20.0F});
    twin.init_params();
    twin.SetDuckingVolume(0.0F, true);

    std::vector<SInt16> s16(256, 20000);
    std::vector<SInt16> expectedS16 = s16;
    buffer.processAudioData({2, 512, s16.data()}, 2, 0);
    auto* bytes = reinterpret_cast<char*>(expectedS16.data());
    twin.Process(bytes, bytes, 2, 512, korva_audio_utils::VolumeControllerFormat::kInt16);
    EXPECT_EQ(expectedS16, s16);
    EXPECT_LT(s16[255], 20000);

    std::vector<float> f32(256, 0.5F);
    std::vector<float> expectedF32 = f32;
    buffer.processAudioData({1, 1024, f32.data()}, 1, 2);
    bytes = reinterpret_cast<char*>(expectedF32.data());
    twin.Process(bytes, bytes, 1, 1024, korva_audio_utils::VolumeControllerFormat::kFloat32);
    EXPECT_EQ(expectedF32, f32);

    std::vector<SInt32> s32(256, 1 << 30);
    std::vector<SInt32> expectedS32 = s32;
    buffer.processAudioData({1, 1024, s32.data()}, 1, 1);
    bytes = reinterpret_cast<char*>(expectedS32.data());
    twin.Process(bytes, bytes, 1, 1024, korva_audio_utils::VolumeControllerFormat::kInt32);
    EXPECT_EQ(expectedS32, s32);
}

TEST(RZReplayAudioUnitBufferTest, ProcessingBadInputLeavesItAlone) {
    const RZReplayVolumeDuckingParam ducking(YES);
    RZReplayAudioUnitBuffer buffer;
    buffer.setDuckingParam(&ducking);
    buffer.setDuckingVolume(0.0F, YES);
    buffer.processAudioData({1, 1024, nullptr}, 1, 2);
    std::vector<float> samples(4, 0.5F);
    for (const int channels : {0, -1}) {
        buffer.processAudioData({1, 16, samples.data()}, channels, 2);
    }
    buffer.processAudioData({1, 16, samples.data()}, 1, 3);
    EXPECT_EQ(std::vector<float>(4, 0.5F), samples);
}
