#include "volume_controller.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "VolumeControllerHelpers.h"

namespace korva_audio_utils {
namespace {

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

TEST(VolumeControllerTest, SoundThatBeginsIsDuckedAtOnceAndNotHeldFromBefore) {
    VolumeController controller(48000);
    EnableDucking(controller);
    controller.SetDuckingVolume(0, true);
    controller.BeginSound();
    std::vector<float> samples(480, 0.5F);
    ProcessFloats(controller, samples);
    EXPECT_FLOAT_EQ(samples.front(), 0.05F);
    EXPECT_FLOAT_EQ(samples.back(), 0.05F);
    controller.SetDuckingVolume(-80, true);
    controller.BeginSound();
    samples.assign(480, 0.5F);
    ProcessFloats(controller, samples);
    EXPECT_EQ(samples.front(), 0.5F);
    EXPECT_EQ(samples.back(), 0.5F);
}

TEST(VolumeControllerTest, SoundThatBeginsFindsTheCompressorAtRest) {
    VolumeController controller(48000);
    EnableCompressor(controller);
    std::vector<float> loud(48000, 1.0F);
    ProcessFloats(controller, loud);
    ASSERT_LT(controller.CompressorCurrent(), 0.3F);
    controller.BeginSound();
    EXPECT_EQ(controller.CompressorCurrent(), 1.0F);
    EXPECT_EQ(controller.SampleCounter(), 0U);
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

TEST(VolumeControllerTest, IntegersSaturateAndTruncateTowardsZero) {
    VolumeController controller(48000);
    // An inaudible compressor: unity gain through the whole conversion.
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
