// Each way to code a stream, of each kind of samples.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "output/matroska/MatroskaFile.h"
#include "tools/tqaudiorecord/output/DecodedFile.h"
#include "tools/tqaudiorecord/output/Sound.h"

namespace tqrecorder::test {
namespace {

/// Two seconds in a file, the second of a tone.
std::vector<std::byte> sound(const BlockFormat& format) {
    const auto half = static_cast<std::size_t>(format.sampleRate);
    std::vector<std::byte> bytes(half * format.frameBytes());
    const auto add = [&bytes](const std::vector<std::byte>& more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
    };
    if (format.isFloat) {
        add(format.bitsPerChannel == 32 ? tone<float>(441, format, half)
                                        : tone<double>(441, format, half));
        return bytes;
    }
    // The upper bits of a tone of 32.
    const auto full = tone<double>(441, {format.sampleRate, format.channels, 64, true}, half);
    for (std::size_t place = 0; place < full.size(); place += sizeof(double)) {
        double value = 0;
        std::memcpy(&value, full.data() + place, sizeof value);
        const auto sample = static_cast<std::int32_t>(std::lround(value * 0x7FFFFFFF));
        for (std::uint32_t bit = 32 - format.bitsPerChannel; bit < 32; bit += 8) {
            bytes.push_back(static_cast<std::byte>(sample >> bit & 0xFF));
        }
    }
    return bytes;
}

class StreamEncoderTest : public testing::Test {
  protected:
    DecodedStream coded(MatroskaCoding coding, const BlockFormat& format,
                        const std::vector<std::byte>& bytes, double begin = 0) {
        const std::string path = folder_.file("out.mka");
        std::string error;
        auto file =
            MatroskaFile::create(path,
                                 tqcommon::Descriptor(::open(
                                     path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)),
                                 coding, error);
        EXPECT_NE(file, nullptr) << error;
        const MatroskaFile::Begun begun = file->begin("a title", format, begin);
        EXPECT_EQ(begun.stream, 1U) << begun.error;
        // In pieces that divide no codec's frame.
        const std::size_t piece = 777 * format.frameBytes();
        for (std::size_t place = 0; place < bytes.size(); place += piece) {
            file->write(1, std::span(bytes).subspan(place, std::min(piece, bytes.size() - place)));
        }
        EXPECT_TRUE(file->close()) << file->problem();
        const DecodedFile decoded(path);
        EXPECT_TRUE(decoded.opened);
        EXPECT_THAT(decoded.complaints, testing::IsEmpty());
        EXPECT_EQ(decoded.streams.size(), 1U);
        return decoded.streams.empty() ? DecodedStream{} : decoded.streams[0];
    }
    TemporaryFolder folder_;
};

struct Case {
    const char* name;
    MatroskaCoding coding;
    BlockFormat format;
    const char* codec;
    int rate;
    double tolerance;  ///< of a sample; more than 0.01 is of a lossy codec
};

void PrintTo(const Case& one, std::ostream* out) {
    *out << one.name;
}

class EveryCodingTest : public StreamEncoderTest, public testing::WithParamInterface<Case> {};

TEST_P(EveryCodingTest, KeepsTheSoundItsLengthAndItsTime) {
    const Case& expected = GetParam();
    const DecodedStream stream = coded(expected.coding, expected.format, sound(expected.format));
    EXPECT_EQ(stream.codec, expected.codec);
    EXPECT_EQ(stream.title, "a title");
    EXPECT_EQ(stream.rate, expected.rate);
    ASSERT_EQ(stream.channels, static_cast<int>(expected.format.channels));
    const bool isLossy = expected.tolerance > 0.01;
    EXPECT_NEAR(stream.start, 0, isLossy ? 0.003 : 1e-6);
    // Vorbis ends with a whole block.
    const bool isVorbis = expected.coding == MatroskaCoding::kVorbis;
    EXPECT_NEAR(stream.seconds(), 2, isVorbis ? 0.03 : isLossy ? 0.003 : 1e-9);
    EXPECT_NEAR(stream.amplitude(441, 1.1, 1.9), 0.5, isLossy ? 0.02 : 0.005);
    if (isLossy) {
        // The tone begins within 2 ms of where it was.
        EXPECT_LT(stream.amplitude(441, 0.1, 0.995), 0.01);
        EXPECT_GT(stream.amplitude(441, 1.002, 1.0065), 0.4);
        return;
    }
    for (std::size_t frame = 0; frame < stream.frames() / 2; ++frame) {
        const double value =
            0.5 * std::sin(2 * std::numbers::pi * 441 * static_cast<double>(frame) / stream.rate);
        ASSERT_EQ(stream.at(frame), 0);
        ASSERT_NEAR(stream.at(stream.frames() / 2 + frame), value, expected.tolerance);
    }
}

constexpr double kLossy = 0.02;
constexpr BlockFormat kEight{22050, 1, 8, false};
constexpr BlockFormat kSixteen{44100, 2, 16, false};
constexpr BlockFormat kDeep{96000, 2, 24, false};
constexpr BlockFormat kFixed{48000, 1, 32, false};
constexpr BlockFormat kFloat{48000, 6, 32, true};
constexpr BlockFormat kDouble{44100, 2, 64, true};

constexpr double bits(int count) {
    return 2.0 / static_cast<double>(std::uint64_t{1} << count);
}

INSTANTIATE_TEST_SUITE_P(
    Codings, EveryCodingTest,
    testing::Values(
        Case{"Pcm8", MatroskaCoding::kPcm, kEight, "pcm_u8", 22050, bits(7)},
        Case{"Pcm16", MatroskaCoding::kPcm, kSixteen, "pcm_s16le", 44100, bits(16)},
        Case{"Pcm24", MatroskaCoding::kPcm, kDeep, "pcm_s24le", 96000, bits(24)},
        Case{"Pcm32", MatroskaCoding::kPcm, kFixed, "pcm_s32le", 48000, bits(32)},
        Case{"PcmFloat", MatroskaCoding::kPcm, kFloat, "pcm_f32le", 48000, 1e-7},
        Case{"PcmDouble", MatroskaCoding::kPcm, kDouble, "pcm_f64le", 44100, 1e-15},
        Case{"Flac8", MatroskaCoding::kFlac, kEight, "flac", 22050, bits(7)},
        Case{"Flac16", MatroskaCoding::kFlac, kSixteen, "flac", 44100, bits(16)},
        Case{"Flac24", MatroskaCoding::kFlac, kDeep, "flac", 96000, bits(24)},
        Case{"FlacFixed", MatroskaCoding::kFlac, kFixed, "flac", 48000, bits(24)},
        Case{"FlacFloat", MatroskaCoding::kFlac, kFloat, "flac", 48000, bits(24)},
        Case{"FlacDouble", MatroskaCoding::kFlac, kDouble, "flac", 44100, bits(24)},
        Case{"Opus16", MatroskaCoding::kOpus, kSixteen, "opus", 48000, kLossy},
        Case{"OpusFloat", MatroskaCoding::kOpus, {48000, 2, 32, true}, "opus", 48000, kLossy},
        Case{"Vorbis8", MatroskaCoding::kVorbis, kEight, "vorbis", 22050, kLossy},
        Case{"Vorbis16", MatroskaCoding::kVorbis, kSixteen, "vorbis", 44100, kLossy},
        Case{
            "VorbisFloat", MatroskaCoding::kVorbis, {48000, 2, 32, true}, "vorbis", 48000, kLossy}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_F(StreamEncoderTest, WhatACodecDoesNotTakeIsWrittenAsItIs) {
    const BlockFormat wide{48000, 10, 16, false};
    const DecodedStream stream = coded(MatroskaCoding::kFlac, wide, sound(wide));
    EXPECT_EQ(stream.codec, "pcm_s16le");
    EXPECT_EQ(stream.frames(), 96'000U);
}

TEST_F(StreamEncoderTest, FloatsBeyondFullScaleAreCutInFlacAndKeptAsPcm) {
    const BlockFormat format{48000, 1, 32, true};
    const std::vector<float> samples{1.5F, -1.5F, 0.25F};
    std::vector<std::byte> bytes(samples.size() * sizeof(float));
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    const DecodedStream cut = coded(MatroskaCoding::kFlac, format, bytes);
    ASSERT_EQ(cut.frames(), 3U);
    EXPECT_NEAR(cut.at(0), 1, 1e-6);
    EXPECT_NEAR(cut.at(1), -1, 1e-6);
    EXPECT_EQ(cut.at(2), 0.25);
    const DecodedStream kept = coded(MatroskaCoding::kPcm, format, bytes);
    EXPECT_EQ(kept.samples, (std::vector<double>{1.5, -1.5, 0.25}));
}

TEST_F(StreamEncoderTest, ALaterStreamSaysWhenItBegins) {
    for (const MatroskaCoding coding : {MatroskaCoding::kFlac, MatroskaCoding::kPcm,
                                        MatroskaCoding::kOpus, MatroskaCoding::kVorbis}) {
        const DecodedStream stream = coded(coding, kSixteen, sound(kSixteen), 1234.56789);
        EXPECT_NEAR(stream.start, 1234.56789, coding == MatroskaCoding::kVorbis ? 0.003 : 1.5e-5);
    }
}

}  // namespace
}  // namespace tqrecorder::test
