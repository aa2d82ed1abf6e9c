#include "volume_controller.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numeric>
#include <vector>

namespace korva_audio_utils {
namespace {

using Format = VolumeControllerFormat;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr std::int32_t kNoHold = 1073741824;

template <typename Sample>
void ProcessInPlace(VolumeController& controller, std::vector<Sample>& samples,
                    std::size_t channels, Format format) {
    auto* const bytes = reinterpret_cast<char*>(samples.data());
    controller.Process(bytes, bytes, channels, samples.size() * sizeof(Sample), format);
}

void ProcessFloats(VolumeController& controller, std::vector<float>& samples,
                   std::size_t channels = 1) {
    ProcessInPlace(controller, samples, channels, Format::kFloat32);
}

void EnableDucking(VolumeController& controller, VolumeController::DuckingParams params = {}) {
    params.enable = true;
    controller.SetDuckingParams(params);
    controller.init_params();
}

void EnableCompressor(VolumeController& controller,
                      VolumeController::CompressorParams params = {}) {
    params.enable = true;
    controller.SetCompressorParams(params);
    controller.init_params();
}

TEST(VolumeControllerTest, FreshControllerHasTheInitialValues) {
    const VolumeController controller(48000);
    EXPECT_EQ(controller.CompressorVolume(), -80.0F);
    EXPECT_EQ(controller.DuckingVolume(), -80.0F);
    EXPECT_EQ(controller.SampleRate(), 48000);
    const VolumeController::DuckingParams ducking = controller.GetDuckingParams();
    EXPECT_FALSE(ducking.enable);
    EXPECT_EQ(ducking.attackTime, 0.2F);
    EXPECT_EQ(ducking.releaseTime, 1.0F);
    EXPECT_EQ(ducking.holdTime, 1.0F);
    EXPECT_EQ(ducking.threshold, -30.0F);
    EXPECT_EQ(ducking.targetGain, -20.0F);
    EXPECT_EQ(controller.HoldCounter(), kNoHold);
    EXPECT_EQ(controller.DuckingTarget(), 1.0F);
    EXPECT_EQ(controller.DuckingCurrent(), 1.0F);
    const VolumeController::CompressorParams compressor = controller.GetCompressorParams();
    EXPECT_FALSE(compressor.enable);
    EXPECT_EQ(compressor.attackTime, 0.05F);
    EXPECT_EQ(compressor.releaseTime, 0.1F);
    EXPECT_EQ(compressor.sideChainThreshold, -40.0F);
    EXPECT_EQ(compressor.threshold, -15.0F);
    EXPECT_EQ(controller.FullScale(), 1.0F);
    EXPECT_EQ(controller.Ratio(), 5.0F);
    EXPECT_EQ(controller.CompressorTarget(), 1.0F);
    EXPECT_EQ(controller.CompressorCurrent(), 1.0F);
    EXPECT_EQ(controller.SampleCounter(), 0U);
}

TEST(VolumeControllerTest, ConstructorDerivesCoefficientsGainsAndIntervals) {
    const VolumeController controller(48000);
    constexpr float k = -2.1972246F;
    EXPECT_EQ(controller.DuckingAttackCoefficient(), std::exp(k / (0.2F * 48000.0F)));
    EXPECT_EQ(controller.DuckingReleaseCoefficient(), std::exp(k / (1.0F * 48000.0F)));
    EXPECT_EQ(controller.HoldSamples(), 48000.0F);
    EXPECT_FLOAT_EQ(controller.DuckingGain(), 0.1F);
    EXPECT_EQ(controller.CompressorAttackCoefficient(), std::exp(k / (0.05F * 48000.0F)));
    EXPECT_EQ(controller.CompressorReleaseCoefficient(), std::exp(k / (0.1F * 48000.0F)));
    EXPECT_FLOAT_EQ(controller.CompressorThreshold(), 0.17782794F);
    EXPECT_EQ(controller.UpdateInterval(), 48);
}

TEST(VolumeControllerTest, SettingARecordStoresItAndDerivesNothing) {
    VolumeController controller(48000);
    const float attack = controller.DuckingAttackCoefficient();
    const float threshold = controller.CompressorThreshold();
    controller.SetDuckingParams({true, 0.1F, 0.2F, 0.3F, -4.0F, -5.0F});
    controller.SetCompressorParams({true, 0.6F, 0.7F, -8.0F, -9.0F});
    const VolumeController::DuckingParams ducking = controller.GetDuckingParams();
    EXPECT_TRUE(ducking.enable);
    EXPECT_EQ(ducking.attackTime, 0.1F);
    EXPECT_EQ(ducking.releaseTime, 0.2F);
    EXPECT_EQ(ducking.holdTime, 0.3F);
    EXPECT_EQ(ducking.threshold, -4.0F);
    EXPECT_EQ(ducking.targetGain, -5.0F);
    const VolumeController::CompressorParams compressor = controller.GetCompressorParams();
    EXPECT_TRUE(compressor.enable);
    EXPECT_EQ(compressor.attackTime, 0.6F);
    EXPECT_EQ(compressor.releaseTime, 0.7F);
    EXPECT_EQ(compressor.sideChainThreshold, -8.0F);
    EXPECT_EQ(compressor.threshold, -9.0F);
    EXPECT_EQ(controller.DuckingAttackCoefficient(), attack);
    EXPECT_EQ(controller.CompressorThreshold(), threshold);
    controller.init_params();
    EXPECT_NE(controller.DuckingAttackCoefficient(), attack);
    EXPECT_FLOAT_EQ(controller.HoldSamples(), 14400.0F);
    EXPECT_FLOAT_EQ(controller.DuckingGain(), 0.56234133F);
    EXPECT_FLOAT_EQ(controller.CompressorThreshold(), 0.35481339F);
}

TEST(VolumeControllerTest, UpdateFSOfAnotherRateDerivesAnew) {
    VolumeController controller(16000);
    controller.UpdateFS(44100);
    EXPECT_EQ(controller.SampleRate(), 44100);
    EXPECT_EQ(controller.HoldSamples(), 44100.0F);
    EXPECT_EQ(controller.UpdateInterval(), 44);
}

TEST(VolumeControllerTest, UpdateFSOfTheSameRateDerivesNothing) {
    VolumeController controller(16000);
    controller.SetDuckingParams({.holdTime = 5.0F});
    controller.UpdateFS(16000);
    EXPECT_EQ(controller.HoldSamples(), 16000.0F);
    controller.UpdateFS(16001);
    EXPECT_EQ(controller.HoldSamples(), 80005.0F);
}

TEST(VolumeControllerTest, UpdateIntervalIsTheRateOverAThousandTowardsZero) {
    EXPECT_EQ(VolumeController(999).UpdateInterval(), 0);
    EXPECT_EQ(VolumeController(0).UpdateInterval(), 0);
    EXPECT_EQ(VolumeController(22050).UpdateInterval(), 22);
    EXPECT_EQ(VolumeController(-1999).UpdateInterval(), -1);
}

TEST(VolumeControllerTest, ParameterChangesLeaveTheRunningStateAlone) {
    VolumeController controller(48000);
    EnableDucking(controller);
    EnableCompressor(controller);
    controller.SetDuckingVolume(0.0F, true);
    std::vector<float> block(480, 0.9F);
    ProcessFloats(controller, block);
    const float ducking = controller.DuckingCurrent();
    const float compressor = controller.CompressorCurrent();
    EXPECT_LT(ducking, 1.0F);
    EXPECT_LT(compressor, 1.0F);
    controller.SetDuckingParams({});
    controller.SetCompressorParams({});
    controller.init_params();
    controller.UpdateFS(8000);
    EXPECT_EQ(controller.DuckingCurrent(), ducking);
    EXPECT_EQ(controller.HoldCounter(), 0);
    EXPECT_EQ(controller.CompressorCurrent(), compressor);
    EXPECT_EQ(controller.SampleCounter(), 480U);
}

TEST(VolumeControllerTest, LevelsAreTakenInDecibelsOrLinear) {
    VolumeController controller(48000);
    controller.SetDuckingVolume(-12.5F, true);
    controller.SetCompressorVolume(-13.5F, true);
    EXPECT_EQ(controller.DuckingVolume(), -12.5F);
    EXPECT_EQ(controller.CompressorVolume(), -13.5F);
    controller.SetDuckingVolume(0.1F, false);
    controller.SetCompressorVolume(2.0F, false);
    EXPECT_EQ(controller.DuckingVolume(), 20.0F * std::log10(0.1F));
    EXPECT_EQ(controller.CompressorVolume(), 20.0F * std::log10(2.0F));
}

TEST(VolumeControllerTest, LinearZeroIsMinusInfinityAndBelowEveryThreshold) {
    VolumeController controller(48000);
    EnableDucking(controller, {.threshold = std::numeric_limits<float>::lowest()});
    controller.SetDuckingVolume(0.0F, false);
    EXPECT_EQ(controller.DuckingVolume(), -kInfinity);
    controller.calculate_ducking_info(10);
    EXPECT_EQ(controller.DuckingTarget(), 1.0F);
}

TEST(VolumeControllerTest, NegativeOrNaNLevelsStartNoDucking) {
    VolumeController controller(48000);
    EnableDucking(controller);
    for (const float level : {-1.0F, kNaN}) {
        controller.SetDuckingVolume(level, false);
        EXPECT_TRUE(std::isnan(controller.DuckingVolume()));
        EXPECT_EQ(controller.calculate_ducking_info(10), controller.DuckingReleaseCoefficient());
        EXPECT_EQ(controller.DuckingTarget(), 1.0F);
    }
}

TEST(VolumeControllerTest, BothEffectsOffLeaveABlockInPlaceUntouched) {
    VolumeController controller(48000);
    std::vector<float> block{1.5F, -2.0F, 0.25F};
    const std::vector<float> before = block;
    ProcessFloats(controller, block);
    EXPECT_EQ(block, before);
    EXPECT_EQ(controller.SampleCounter(), 0U);
}

TEST(VolumeControllerTest, BothEffectsOffCopyToAnotherBlockByteForByte) {
    VolumeController controller(48000);
    std::array<char, 7> in{1, 2, 3, 4, 5, 6, 7};
    std::array<char, 7> out{};
    controller.Process(in.data(), out.data(), 2, in.size(), Format::kInt16);
    EXPECT_EQ(out, in);
}

TEST(VolumeControllerTest, UnknownFormatsAreCopiedOrLeftAlone) {
    VolumeController controller(48000);
    EnableDucking(controller);
    EnableCompressor(controller);
    controller.SetDuckingVolume(0.0F, true);
    for (const int format : {3, 4, 1000, -1, std::numeric_limits<int>::min()}) {
        std::array<char, 8> in{1, 2, 3, 4, 5, 6, 7, 8};
        const std::array<char, 8> before = in;
        std::array<char, 8> out{};
        controller.Process(in.data(), out.data(), 1, in.size(), static_cast<Format>(format));
        EXPECT_EQ(out, before);
        controller.Process(in.data(), in.data(), 1, in.size(), static_cast<Format>(format));
        EXPECT_EQ(in, before);
        controller.adjust_volume(in.data(), in.data(), 1, 2, format);
        EXPECT_EQ(in, before);
    }
    EXPECT_EQ(controller.HoldCounter(), kNoHold);
}

TEST(VolumeControllerTest, FullScaleFollowsTheFormatOfTheBlock) {
    VolumeController controller(48000);
    EnableCompressor(controller);
    std::array<char, 4> block{};
    const auto process = [&](Format format) {
        controller.Process(block.data(), block.data(), 1, block.size(), format);
        return controller.FullScale();
    };
    EXPECT_EQ(process(Format::kInt16), 32767.0F);
    EXPECT_EQ(process(Format::kInt32), 2147483648.0F);
    EXPECT_EQ(process(Format::kFloat32), 1.0F);
    EXPECT_EQ(static_cast<int>(Format::kInt16), 0);
    EXPECT_EQ(static_cast<int>(Format::kInt32), 1);
    EXPECT_EQ(static_cast<int>(Format::kFloat32), 2);
}

TEST(VolumeControllerTest, ZeroChannelsProcessNoFrame) {
    VolumeController controller(48000);
    EnableCompressor(controller);
    EnableDucking(controller);
    controller.SetDuckingVolume(0.0F, true);
    std::vector<float> block(64, 0.9F);
    const std::vector<float> before = block;
    ProcessFloats(controller, block, 0);
    EXPECT_EQ(block, before);
    EXPECT_EQ(controller.SampleCounter(), 0U);
    // The decision per block is still taken.
    EXPECT_EQ(controller.HoldCounter(), 0);
}

TEST(VolumeControllerTest, MoreChannelsThanSamplesProcessNoFrame) {
    VolumeController controller(48000);
    EnableCompressor(controller);
    std::vector<float> block(5, 0.9F);
    ProcessFloats(controller, block, 6);
    ProcessFloats(controller, block, std::numeric_limits<std::size_t>::max());
    EXPECT_EQ(block, std::vector<float>(5, 0.9F));
    EXPECT_EQ(controller.SampleCounter(), 0U);
}

TEST(VolumeControllerTest, BytesBehindTheLastWholeFrameAreNotWritten) {
    VolumeController controller(48000);
    EnableCompressor(controller, {.attackTime = 0.0F, .threshold = -40.0F});
    std::array<std::int16_t, 6> in{20000, 20000, 20000, 20000, 20000, 20000};
    std::array<std::int16_t, 6> out{7, 7, 7, 7, 7, 7};
    controller.Process(reinterpret_cast<const char*>(in.data()),
                       reinterpret_cast<char*>(out.data()), 2, 11, Format::kInt16);
    EXPECT_LT(out[3], 20000);
    EXPECT_NE(out[3], 7);
    EXPECT_EQ(out[4], 7);
    EXPECT_EQ(out[5], 7);
    controller.Process(reinterpret_cast<const char*>(in.data()), reinterpret_cast<char*>(in.data()),
                       2, 11, Format::kInt16);
    EXPECT_LT(in[3], 20000);
    EXPECT_EQ(in[4], 20000);
    EXPECT_EQ(in[5], 20000);
}

TEST(VolumeControllerTest, NullPointersAreABlockWithoutFrames) {
    VolumeController controller(48000);
    std::array<char, 8> block{};
    controller.Process(nullptr, nullptr, 2, 0, Format::kInt16);
    controller.Process(nullptr, nullptr, 2, 64, Format::kInt16);
    controller.Process(block.data(), nullptr, 2, 8, Format::kInt16);
    controller.Process(nullptr, block.data(), 2, 8, Format::kInt16);
    EnableDucking(controller);
    EnableCompressor(controller);
    controller.Process(nullptr, nullptr, 2, 0, Format::kFloat32);
    controller.Process(nullptr, nullptr, 2, 64, Format::kFloat32);
    controller.Process(block.data(), nullptr, 2, 8, Format::kInt32);
    controller.Process(nullptr, block.data(), 2, 8, Format::kInt16);
    EXPECT_EQ(controller.SampleCounter(), 0U);
    EXPECT_EQ(block, (std::array<char, 8>{}));
}

TEST(VolumeControllerTest, SamplesNeedNotBeAligned) {
    VolumeController controller(48000);
    EnableCompressor(controller, {.attackTime = 0.0F, .threshold = -40.0F});
    std::array<char, 9> bytes{};
    const std::array<float, 2> samples{0.9F, -0.9F};
    std::memcpy(&bytes[1], samples.data(), sizeof samples);
    controller.Process(&bytes[1], &bytes[1], 1, 8, Format::kFloat32);
    float second = 0.0F;
    std::memcpy(&second, &bytes[5], sizeof second);
    EXPECT_LT(second, 0.0F);
    EXPECT_GT(second, -0.5F);
}

TEST(VolumeControllerTest, DuckingOfASilentOutsideLeavesTheFirstBlockAsItIs) {
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

TEST(VolumeControllerTest, DuckingFallsToANinthInTheAttackTimeHoldsAndRecoversInTheReleaseTime) {
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

TEST(VolumeControllerTest, HoldAdvancesByTheFramesOfEachBlockAndEndsWithABlock) {
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

TEST(VolumeControllerTest, HoldAdvancesWhileOnlyTheCompressorIsEnabled) {
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

TEST(VolumeControllerTest, HoldWithoutEndDoesNotOverflow) {
    VolumeController controller(48000);
    EnableDucking(controller, {.holdTime = kInfinity});
    for (int k = 0; k < 4; ++k) {
        controller.calculate_ducking_info(std::numeric_limits<int>::max());
    }
    EXPECT_EQ(controller.HoldCounter(), std::numeric_limits<int>::max());
    EXPECT_EQ(controller.DuckingTarget(), controller.DuckingGain());
}

TEST(VolumeControllerTest, CompressorTargetOfAFullScaleSampleFollowsTheSideChain) {
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

TEST(VolumeControllerTest, CompressorLooksAtASampleOnlyEveryInterval) {
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

TEST(VolumeControllerTest, WithoutAnIntervalOnlyTheVeryFirstSampleCounts) {
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

TEST(VolumeControllerTest, NegativeIntervalCountsByItsMagnitude) {
    VolumeController controller(-2000);
    ASSERT_EQ(controller.UpdateInterval(), -2);
    controller.calculate_compressor_gain(0.0F);
    controller.calculate_compressor_gain(1.0F);
    EXPECT_EQ(controller.CompressorTarget(), 1.0F);
    controller.calculate_compressor_gain(1.0F);
    EXPECT_LT(controller.CompressorTarget(), 0.3F);
}

TEST(VolumeControllerTest, DetectorHearsTheFirstChannelOnly) {
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

TEST(VolumeControllerTest, TheSmallerOfBothGainsWins) {
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

TEST(VolumeControllerTest, AGainNeverRaisesASample) {
    VolumeController controller(48000);
    EnableDucking(controller, {.attackTime = 0.0F, .targetGain = 12.0F});
    controller.SetDuckingVolume(0.0F, true);
    std::vector<float> block(10, 0.5F);
    ProcessFloats(controller, block);
    EXPECT_GT(controller.DuckingCurrent(), 3.0F);
    EXPECT_EQ(block, std::vector<float>(10, 0.5F));
}

TEST(VolumeControllerTest, DisabledDuckingIsAtUnityAtOnce) {
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

TEST(VolumeControllerTest, ResetOfDuckingRestoresItsFreshStateOnly) {
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

TEST(VolumeControllerTest, ResetOfTheCompressorRestoresItsFreshStateOnly) {
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

TEST(VolumeControllerTest, ResetStateCarriesOnInTheNextBlock) {
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

TEST(VolumeControllerTest, IntegersSaturateAndTruncateTowardsZero) {
    VolumeController controller(48000);
    // An inaudible compressor: unity gain through the whole sample road.
    EnableCompressor(controller, {.threshold = 20.0F});
    std::vector<std::int32_t> wide{2147483647, std::numeric_limits<std::int32_t>::min(), 5, -5};
    ProcessInPlace(controller, wide, 1, Format::kInt32);
    EXPECT_EQ(wide, (std::vector<std::int32_t>{2147483647, std::numeric_limits<std::int32_t>::min(),
                                               5, -5}));
    std::vector<std::int16_t> narrow{32767, -32768, 5, -5};
    ProcessInPlace(controller, narrow, 1, Format::kInt16);
    EXPECT_EQ(narrow, (std::vector<std::int16_t>{32767, -32768, 5, -5}));

    VolumeController ducked(48000);
    EnableDucking(ducked, {.attackTime = 0.0F, .targetGain = 20.0F * std::log10(0.3F)});
    ducked.SetDuckingVolume(0.0F, true);
    narrow = {5, -5, 9, -9};
    ProcessInPlace(ducked, narrow, 1, Format::kInt16);
    EXPECT_EQ(narrow, (std::vector<std::int16_t>{1, -1, 2, -2}));
}

TEST(VolumeControllerTest, NonFiniteInputSamplesPassThroughWithoutHarmToTheState) {
    VolumeController controller(4000);
    EnableCompressor(controller);
    std::vector<float> block{kNaN, 0.0F, 0.0F, 0.0F, kInfinity, 0.0F};
    ProcessFloats(controller, block);
    EXPECT_TRUE(std::isnan(block[0]));
    EXPECT_TRUE(std::isfinite(controller.CompressorCurrent()));
    EXPECT_EQ(controller.CompressorTarget(), 0.0F);
}

TEST(VolumeControllerTest, SenselessRatesAndTimesNeitherTrapNorTurnSamplesNegativeOrNaN) {
    for (const int rate :
         {0, -1, -48000, std::numeric_limits<int>::min(), 1, std::numeric_limits<int>::max()}) {
        for (const float value : {0.0F, -1.0F, kNaN, kInfinity, -kInfinity}) {
            VolumeController controller(rate);
            EnableDucking(controller, {true, value, value, value, value, value});
            EnableCompressor(controller, {true, value, value, value, value});
            for (const float level : {0.0F, value, -80.0F}) {
                controller.SetDuckingVolume(level, true);
                controller.SetCompressorVolume(level, true);
                std::vector<float> block(500, 0.5F);
                ProcessFloats(controller, block, 2);
                for (const float sample : block) {
                    ASSERT_GE(sample, 0.0F);
                    ASSERT_LE(sample, 0.5F);
                }
                std::vector<std::int16_t> narrow(500, 16384);
                ProcessInPlace(controller, narrow, 1, Format::kInt16);
                for (const std::int16_t sample : narrow) {
                    ASSERT_GE(sample, 0);
                    ASSERT_LE(sample, 16384);
                }
            }
        }
    }
}

TEST(VolumeControllerTest, ZeroTimesAreInstant) {
    VolumeController controller(48000);
    EnableDucking(controller, {.attackTime = 0.0F, .releaseTime = 0.0F, .holdTime = 0.0F});
    controller.SetDuckingVolume(0.0F, true);
    std::vector<float> block(2, 1.0F);
    ProcessFloats(controller, block);
    EXPECT_EQ(block[0], controller.DuckingGain());
    controller.SetDuckingVolume(-80.0F, true);
    block.assign(2, 1.0F);
    ProcessFloats(controller, block);
    EXPECT_EQ(block[0], 1.0F);
}

}  // namespace
}  // namespace korva_audio_utils
