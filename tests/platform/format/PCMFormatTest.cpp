#include "format/PCMFormat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using tqplatform::PCMFormat;
using tqplatform::SampleType;

constexpr UInt32 kFloat = kAudioFormatFlagIsFloat;
constexpr UInt32 kSigned = kAudioFormatFlagIsSignedInteger;
constexpr UInt32 kPacked = kAudioFormatFlagIsPacked;
constexpr UInt32 kBig = kAudioFormatFlagIsBigEndian;
constexpr UInt32 kPlanar = kAudioFormatFlagIsNonInterleaved;

AudioStreamBasicDescription describe(UInt32 flags, UInt32 bits, UInt32 channels,
                                     Float64 rate = 44100) {
    AudioStreamBasicDescription description{};
    description.mSampleRate = rate;
    description.mFormatID = kAudioFormatLinearPCM;
    description.mFormatFlags = flags;
    description.mBitsPerChannel = bits;
    description.mChannelsPerFrame = channels;
    description.mFramesPerPacket = 1;
    description.mBytesPerFrame = bits / 8 * ((flags & kPlanar) != 0 ? 1 : channels);
    description.mBytesPerPacket = description.mBytesPerFrame;
    return description;
}

bool accepted(const AudioStreamBasicDescription& description) {
    return PCMFormat::parse(description).has_value();
}

TEST(PCMFormatParse, ReadsEveryFieldOfAnInterleavedFormat) {
    const auto format = PCMFormat::parse(describe(kSigned | kPacked, 16, 2, 22050));
    ASSERT_TRUE(format);
    EXPECT_EQ(format->type, SampleType::int16);
    EXPECT_FALSE(format->bigEndian);
    EXPECT_TRUE(format->interleaved);
    EXPECT_EQ(format->channels, 2U);
    EXPECT_EQ(format->bytesPerFrame, 4U);
    EXPECT_EQ(format->sampleRate, 22050);
    EXPECT_EQ(format->bufferCount(), 1U);
}

TEST(PCMFormatParse, CountsOneBufferPerChannelWhenNotInterleaved) {
    const auto format = PCMFormat::parse(describe(kFloat | kPacked | kPlanar, 32, 6));
    ASSERT_TRUE(format);
    EXPECT_FALSE(format->interleaved);
    EXPECT_EQ(format->bytesPerFrame, 4U);
    EXPECT_EQ(format->bufferCount(), 6U);
}

TEST(PCMFormatParse, KnowsEverySampleType) {
    const UInt32 fraction24 = 24U << kLinearPCMFormatFlagsSampleFractionShift;
    const struct {
        UInt32 flags;
        UInt32 bits;
        SampleType type;
    } cases[] = {
        {kSigned, 8, SampleType::int8},
        {kSigned, 16, SampleType::int16},
        {kSigned, 24, SampleType::int24},
        {kSigned, 32, SampleType::int32},
        {kFloat, 32, SampleType::float32},
        {kFloat, 64, SampleType::float64},
        {kSigned | fraction24, 32, SampleType::fixed824},
    };
    for (const auto& one : cases) {
        for (const UInt32 layout : {0U, kPlanar}) {
            for (const UInt32 order : {0U, kBig}) {
                const auto format =
                    PCMFormat::parse(describe(one.flags | kPacked | layout | order, one.bits, 2));
                ASSERT_TRUE(format) << one.flags << ' ' << one.bits;
                EXPECT_EQ(format->type, one.type);
                EXPECT_EQ(format->bigEndian, order == kBig && one.bits > 8);
            }
        }
    }
}

TEST(PCMFormatParse, TakesTheOldPhoneMixerFormat) {
    const auto format = PCMFormat::parse(describe(0xC2C, 32, 2));
    ASSERT_TRUE(format);
    EXPECT_EQ(format->type, SampleType::fixed824);
    EXPECT_FALSE(format->interleaved);
}

TEST(PCMFormatParse, TakesFullSamplesWithoutThePackedFlag) {
    const auto format = PCMFormat::parse(describe(kSigned, 24, 2));
    ASSERT_TRUE(format);
    EXPECT_EQ(format->bytesPerFrame, 6U);
}

TEST(PCMFormatParse, TakesFlagsThatChangeNothing) {
    EXPECT_TRUE(accepted(describe(kFloat | kPacked | kAudioFormatFlagIsNonMixable, 32, 2)));
    EXPECT_TRUE(accepted(describe(kFloat | kAudioFormatFlagsAreAllClear, 32, 2)));
    EXPECT_TRUE(accepted(describe(kSigned | kAudioFormatFlagIsAlignedHigh, 16, 2)));
}

TEST(PCMFormatParse, RefusesOtherFormatsThanLinearPCM) {
    auto description = describe(kFloat | kPacked, 32, 2);
    description.mFormatID = 0x61616320;
    EXPECT_FALSE(accepted(description));
    description.mFormatID = 0;
    EXPECT_FALSE(accepted(description));
}

TEST(PCMFormatParse, TakesUnsignedBytesAndWords) {
    const auto bytes = PCMFormat::parse(describe(kPacked | kAudioFormatFlagIsBigEndian, 8, 1));
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->type, SampleType::uint8);
    EXPECT_FALSE(bytes->bigEndian);
    EXPECT_TRUE(bytes->isUnsigned());
    const auto words = PCMFormat::parse(describe(kAudioFormatFlagsAreAllClear, 16, 1));
    ASSERT_TRUE(words);
    EXPECT_EQ(words->type, SampleType::uint16);
    EXPECT_FALSE(accepted(describe(kPacked, 24, 1)));
    EXPECT_FALSE(accepted(describe(kPacked, 32, 1)));
}

TEST(PCMFormatParse, RefusesContradictoryTypes) {
    EXPECT_FALSE(accepted(describe(kFloat | kSigned | kPacked, 32, 1)));
    EXPECT_FALSE(accepted(describe(kSigned | kPacked | 0x2000, 16, 1)));
}

TEST(PCMFormatParse, RefusesBitDepthsItCannotRead) {
    for (const UInt32 bits : {0U, 1U, 12U, 20U, 40U, 64U}) {
        EXPECT_FALSE(accepted(describe(kSigned | kPacked, bits, 1))) << bits;
    }
    for (const UInt32 bits : {0U, 8U, 16U, 24U, 80U}) {
        EXPECT_FALSE(accepted(describe(kFloat | kPacked, bits, 1))) << bits;
    }
}

TEST(PCMFormatParse, RefusesOtherFractionsThan24Of32Bits) {
    const auto fraction = [](UInt32 bits) {
        return bits << kLinearPCMFormatFlagsSampleFractionShift;
    };
    EXPECT_FALSE(accepted(describe(kSigned | kPacked | fraction(16), 32, 1)));
    EXPECT_FALSE(accepted(describe(kSigned | kPacked | fraction(24), 24, 1)));
    EXPECT_FALSE(accepted(describe(kFloat | kPacked | fraction(24), 32, 1)));
}

TEST(PCMFormatParse, RefusesByteCountsThatDoNotAddUp) {
    auto description = describe(kSigned | kPacked, 16, 2);
    description.mBytesPerFrame = 2;
    EXPECT_FALSE(accepted(description));

    description = describe(kSigned | kPacked, 16, 2);
    description.mBytesPerPacket = 8;
    EXPECT_FALSE(accepted(description));

    description = describe(kSigned | kPacked, 16, 2);
    description.mFramesPerPacket = 2;
    EXPECT_FALSE(accepted(description));

    description = describe(kSigned | kPacked, 16, 2);
    description.mFramesPerPacket = 0;
    EXPECT_FALSE(accepted(description));

    description = describe(kSigned | kPacked | kPlanar, 16, 2);
    description.mBytesPerFrame = 4;
    description.mBytesPerPacket = 4;
    EXPECT_FALSE(accepted(description));

    // 24 bits in a word of four bytes.
    description = describe(kSigned, 24, 1);
    description.mBytesPerFrame = 4;
    description.mBytesPerPacket = 4;
    EXPECT_FALSE(accepted(description));
}

TEST(PCMFormatParse, TakesOneTo64Channels) {
    EXPECT_FALSE(accepted(describe(kFloat | kPacked | kPlanar, 32, 0)));
    EXPECT_TRUE(accepted(describe(kFloat | kPacked, 32, 1)));
    EXPECT_TRUE(accepted(describe(kFloat | kPacked, 32, 64)));
    EXPECT_FALSE(accepted(describe(kFloat | kPacked, 32, 65)));
    EXPECT_FALSE(accepted(describe(kFloat | kPacked | kPlanar, 32, 0xFFFFFFFF)));
}

TEST(PCMFormatParse, TakesRatesFromZeroToAMillion) {
    EXPECT_TRUE(accepted(describe(kFloat | kPacked, 32, 2, 0)));
    EXPECT_TRUE(accepted(describe(kFloat | kPacked, 32, 2, 1e6)));
    EXPECT_TRUE(accepted(describe(kFloat | kPacked, 32, 2, 44100.5)));
    EXPECT_FALSE(accepted(describe(kFloat | kPacked, 32, 2, 1e6 + 1)));
    EXPECT_FALSE(accepted(describe(kFloat | kPacked, 32, 2, -1)));
    EXPECT_FALSE(accepted(describe(kFloat | kPacked, 32, 2, std::nan(""))));
    EXPECT_FALSE(
        accepted(describe(kFloat | kPacked, 32, 2, std::numeric_limits<double>::infinity())));
}

TEST(PCMFormatFloatDescription, IsTheUsualPlanarFloatFormat) {
    const auto description = tqplatform::floatDescription(48000, 2);
    EXPECT_EQ(description.mFormatFlags, 0x29U);
    EXPECT_EQ(description.mBytesPerFrame, 4U);
    EXPECT_EQ(description.mSampleRate, 48000);
    const auto format = PCMFormat::parse(description);
    ASSERT_TRUE(format);
    EXPECT_EQ(format->type, SampleType::float32);
    EXPECT_EQ(format->channels, 2U);
    EXPECT_FALSE(format->interleaved);
}

}  // namespace
