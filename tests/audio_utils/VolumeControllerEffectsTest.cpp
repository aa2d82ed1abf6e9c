#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <vector>

#include "VolumeControllerHelpers.h"
#include "volume_controller.h"

namespace korva_audio_utils {
namespace {

// How ducking and compression move over time, and how they are reset.

TEST(VolumeControllerEffectsTest, DuckingOfASilentOutsideLeavesTheFirstBlockAsItIs) {
    VolumeController controller(48000);
    EnableDucking(controller);
    std::vector<float> block(480);
    std::iota(block.begin(), block.end(), -200.0F);
    const std::vector<float> before = block;
    ProcessFloats(controller, block);
    EXPECT_EQ(block, before);
    EXPECT_EQ(controller.DuckingTarget(), 1.0F);
    EXPECT_EQ(controller.HoldCounter(), kNoHold);
}

TEST(VolumeControllerEffectsTest,
     DuckingFallsToANinthInTheAttackTimeHoldsAndRecoversInTheReleaseTime) {
    constexpr std::size_t kRate = 48000;
    constexpr std::size_t kBlock = 480;
    VolumeController controller(kRate);
    EnableDucking(controller);
    const auto run = [&](std::size_t frames) {
        float last = 0.0F;
        for (std::size_t done = 0; done < frames; done += kBlock) {
            std::vector<float> block(kBlock, 1.0F);
            ProcessFloats(controller, block);
            last = block.back();
        }
        return last;
    };
    controller.SetDuckingVolume(-29.9F, true);
    EXPECT_NEAR(run(kRate / 5), 0.1F + 0.9F / 9.0F, 1e-4);
    EXPECT_NEAR(run(2 * kRate), 0.1F, 1e-4);
    controller.SetDuckingVolume(-30.0F, true);
    // Held for one second counted in blocks, then released to a ninth of the way in one second.
    EXPECT_NEAR(run(kRate), 0.1F, 1e-4);
    EXPECT_EQ(controller.HoldCounter(), 48000);
    EXPECT_NEAR(run(kRate), 1.0F - 0.9F / 9.0F, 1e-3);
    EXPECT_EQ(controller.HoldCounter(), 48000);
}

TEST(VolumeControllerEffectsTest, HoldAdvancesByTheFramesOfEachBlockAndEndsWithABlock) {
    VolumeController controller(1000);
    EnableDucking(controller, {.holdTime = 0.25F});
    controller.SetDuckingVolume(0.0F, true);
    EXPECT_EQ(controller.calculate_ducking_info(100), controller.DuckingAttackCoefficient());
    EXPECT_EQ(controller.HoldCounter(), 0);
    EXPECT_EQ(controller.DuckingTarget(), controller.DuckingGain());
    controller.SetDuckingVolume(-80.0F, true);
    for (const int counter : {100, 200, 300}) {
        EXPECT_EQ(controller.calculate_ducking_info(100), controller.DuckingAttackCoefficient());
        EXPECT_EQ(controller.HoldCounter(), counter);
        EXPECT_EQ(controller.DuckingTarget(), controller.DuckingGain());
    }
    EXPECT_EQ(controller.calculate_ducking_info(100), controller.DuckingReleaseCoefficient());
    EXPECT_EQ(controller.HoldCounter(), 300);
    EXPECT_EQ(controller.DuckingTarget(), 1.0F);
}

TEST(VolumeControllerEffectsTest, HoldAdvancesWhileOnlyTheCompressorIsEnabled) {
    VolumeController controller(1000);
    EnableCompressor(controller);
    controller.SetDuckingVolume(0.0F, true);
    std::vector<float> block(100, 0.01F);
    ProcessFloats(controller, block);
    controller.SetDuckingVolume(-80.0F, true);
    ProcessFloats(controller, block);
    EXPECT_EQ(controller.HoldCounter(), 100);
    EXPECT_EQ(controller.DuckingTarget(), controller.DuckingGain());
    EXPECT_EQ(controller.DuckingCurrent(), 1.0F);
}

TEST(VolumeControllerEffectsTest, HoldWithoutEndDoesNotOverflow) {
    VolumeController controller(48000);
    EnableDucking(controller, {.holdTime = kInfinity});
    for (int k = 0; k < 4; ++k) {
        controller.calculate_ducking_info(std::numeric_limits<int>::max());
    }
    EXPECT_EQ(controller.HoldCounter(), std::numeric_limits<int>::max());
    EXPECT_EQ(controller.DuckingTarget(), controller.DuckingGain());
}

TEST(VolumeControllerEffectsTest, CompressorTargetOfAFullScaleSampleFollowsTheSideChain) {
    VolumeController controller(48000);
    EnableCompressor(controller);
    std::vector<std::int16_t> block(1, 32767);
    ProcessInPlace(controller, block, 1, Format::kInt16);
    EXPECT_NEAR(controller.CompressorTarget(), 0.2512F, 5e-5);
    EXPECT_NEAR(controller.CompressorThreshold(), 0.17783F, 5e-6);
    controller.ResetCompressorState();
    controller.SetCompressorVolume(-39.9F, true);
    block[0] = 32767;
    ProcessInPlace(controller, block, 1, Format::kInt16);
    EXPECT_NEAR(controller.CompressorTarget(), 0.1995F, 5e-5);
    controller.ResetCompressorState();
    controller.SetCompressorVolume(-40.0F, true);
    block[0] = 32767;
    ProcessInPlace(controller, block, 1, Format::kInt16);
    EXPECT_NEAR(controller.CompressorTarget(), 0.2512F, 5e-5);
}

TEST(VolumeControllerEffectsTest, CompressorLooksAtASampleOnlyEveryInterval) {
    VolumeController controller(4000);
    EnableCompressor(controller);
    ASSERT_EQ(controller.UpdateInterval(), 4);
    controller.calculate_compressor_gain(0.01F);
    for (int k = 1; k < 4; ++k) {
        controller.calculate_compressor_gain(1.0F);
        EXPECT_EQ(controller.CompressorTarget(), 1.0F);
    }
    controller.calculate_compressor_gain(1.0F);
    EXPECT_LT(controller.CompressorTarget(), 0.3F);
    EXPECT_EQ(controller.SampleCounter(), 5U);
}

TEST(VolumeControllerEffectsTest, WithoutAnIntervalOnlyTheVeryFirstSampleCounts) {
    VolumeController controller(999);
    EnableCompressor(controller);
    std::vector<float> block{1.0F, 0.0F, 0.0F};
    ProcessFloats(controller, block);
    const float target = controller.CompressorTarget();
    EXPECT_LT(target, 0.3F);
    block.assign(5000, 0.0F);
    ProcessFloats(controller, block);
    EXPECT_EQ(controller.CompressorTarget(), target);
    EXPECT_EQ(controller.SampleCounter(), 5003U);
}

TEST(VolumeControllerEffectsTest, NegativeIntervalCountsByItsMagnitude) {
    VolumeController controller(-2000);
    ASSERT_EQ(controller.UpdateInterval(), -2);
    controller.calculate_compressor_gain(0.0F);
    controller.calculate_compressor_gain(1.0F);
    EXPECT_EQ(controller.CompressorTarget(), 1.0F);
    controller.calculate_compressor_gain(1.0F);
    EXPECT_LT(controller.CompressorTarget(), 0.3F);
}

TEST(VolumeControllerEffectsTest, DetectorHearsTheFirstChannelOnly) {
    VolumeController controller(48000);
    EnableCompressor(controller, {.attackTime = 0.0F});
    std::vector<float> quietFirst{0.01F, 1.0F, -1.0F};
    ProcessFloats(controller, quietFirst, 3);
    EXPECT_EQ(quietFirst, (std::vector<float>{0.01F, 1.0F, -1.0F}));
    controller.ResetCompressorState();
    std::vector<float> loudFirst{1.0F, 0.01F, -1.0F};
    ProcessFloats(controller, loudFirst, 3);
    EXPECT_NEAR(loudFirst[0], 0.2512F, 5e-5);
    EXPECT_NEAR(loudFirst[1], 0.002512F, 5e-7);
    EXPECT_NEAR(loudFirst[2], -0.2512F, 5e-5);
}

TEST(VolumeControllerEffectsTest, TheSmallerOfBothGainsWins) {
    VolumeController controller(48000);
    EnableDucking(controller, {.attackTime = 0.0F, .targetGain = -6.0F});
    EnableCompressor(controller, {.attackTime = 0.0F});
    controller.SetDuckingVolume(0.0F, true);
    const float coefficient = controller.calculate_ducking_info(1);
    EXPECT_EQ(controller.calculate_sample_gain(0.01F, coefficient), controller.DuckingGain());
    controller.ResetCompressorState();
    const float compressed = controller.calculate_sample_gain(1.0F, coefficient);
    EXPECT_EQ(compressed, controller.CompressorTarget());
    EXPECT_LT(controller.CompressorTarget(), controller.DuckingGain());
}

TEST(VolumeControllerEffectsTest, AGainNeverRaisesASample) {
    VolumeController controller(48000);
    EnableDucking(controller, {.attackTime = 0.0F, .targetGain = 12.0F});
    controller.SetDuckingVolume(0.0F, true);
    std::vector<float> block(10, 0.5F);
    ProcessFloats(controller, block);
    EXPECT_GT(controller.DuckingCurrent(), 3.0F);
    EXPECT_EQ(block, std::vector<float>(10, 0.5F));
}

TEST(VolumeControllerEffectsTest, AGainOfZeroIsAGainLikeAnyOther) {
    VolumeController controller(48000);
    // At once (the coefficient is 0), to a level below the smallest float.
    EnableDucking(controller, {.attackTime = 0.0F, .targetGain = -2000.0F});
    controller.SetDuckingVolume(0.0F, true);
    std::vector<float> block(480, 0.5F);
    ProcessFloats(controller, block);
    EXPECT_EQ(controller.DuckingGain(), 0.0F);
    EXPECT_EQ(block, std::vector<float>(480, 0.0F));
}

TEST(VolumeControllerEffectsTest, DisabledDuckingIsAtUnityAtOnce) {
    VolumeController controller(48000);
    EnableDucking(controller);
    EnableCompressor(controller);
    controller.SetDuckingVolume(0.0F, true);
    std::vector<float> block(4800, 0.01F);
    ProcessFloats(controller, block);
    EXPECT_LT(controller.DuckingCurrent(), 0.9F);
    controller.SetDuckingParams({});
    block.assign(1, 0.01F);
    ProcessFloats(controller, block);
    EXPECT_EQ(controller.DuckingCurrent(), 1.0F);
    EXPECT_EQ(block[0], 0.01F);
}

TEST(VolumeControllerEffectsTest, ResetOfDuckingRestoresItsFreshStateOnly) {
    VolumeController controller(48000);
    EnableDucking(controller);
    EnableCompressor(controller);
    controller.SetDuckingVolume(0.0F, true);
    controller.SetCompressorVolume(0.0F, true);
    std::vector<float> block(4800, 1.0F);
    ProcessFloats(controller, block);
    const float compressor = controller.CompressorCurrent();
    controller.ResetDuckingState();
    EXPECT_EQ(controller.DuckingVolume(), -80.0F);
    EXPECT_EQ(controller.HoldCounter(), kNoHold);
    EXPECT_EQ(controller.DuckingTarget(), 1.0F);
    EXPECT_EQ(controller.DuckingCurrent(), 1.0F);
    EXPECT_EQ(controller.CompressorVolume(), 0.0F);
    EXPECT_EQ(controller.CompressorCurrent(), compressor);
    EXPECT_EQ(controller.SampleCounter(), 4800U);
    EXPECT_TRUE(controller.GetDuckingParams().enable);
}

TEST(VolumeControllerEffectsTest, ResetOfTheCompressorRestoresItsFreshStateOnly) {
    VolumeController controller(48000);
    EnableDucking(controller);
    EnableCompressor(controller);
    controller.SetDuckingVolume(0.0F, true);
    controller.SetCompressorVolume(0.0F, true);
    std::vector<float> block(4800, 1.0F);
    ProcessFloats(controller, block);
    const float ducking = controller.DuckingCurrent();
    controller.ResetCompressorState();
    EXPECT_EQ(controller.CompressorVolume(), -80.0F);
    EXPECT_EQ(controller.CompressorTarget(), 1.0F);
    EXPECT_EQ(controller.CompressorCurrent(), 1.0F);
    EXPECT_EQ(controller.SampleCounter(), 0U);
    EXPECT_EQ(controller.DuckingVolume(), 0.0F);
    EXPECT_EQ(controller.DuckingCurrent(), ducking);
    EXPECT_EQ(controller.HoldCounter(), 0);
}

TEST(VolumeControllerEffectsTest, ResetStateCarriesOnInTheNextBlock) {
    VolumeController controller(48000);
    EnableDucking(controller);
    controller.SetDuckingVolume(0.0F, true);
    std::vector<float> block(4800, 1.0F);
    ProcessFloats(controller, block);
    controller.ResetDuckingState();
    block.assign(100, 1.0F);
    ProcessFloats(controller, block);
    EXPECT_EQ(block, std::vector<float>(100, 1.0F));
}

}  // namespace
}  // namespace korva_audio_utils
