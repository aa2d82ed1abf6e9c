#include <AudioToolbox/AudioToolbox.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

AudioStreamBasicDescription integers(Float64 rate, UInt32 channels, AudioFormatFlags more = 0) {
    const UInt32 bytes = 2 * channels;
    return {rate,
            kAudioFormatLinearPCM,
            kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked | more,
            bytes,
            1,
            bytes,
            channels,
            16,
            0};
}

AudioStreamBasicDescription floats(Float64 rate, UInt32 channels) {
    return {rate,
            kAudioFormatLinearPCM,
            kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
            4 * channels,
            1,
            4 * channels,
            channels,
            32,
            0};
}

class OwnedConverter {
  public:
    OwnedConverter(const AudioStreamBasicDescription& source,
                   const AudioStreamBasicDescription& destination) {
        EXPECT_EQ(AudioConverterNew(&source, &destination, &converter_), noErr);
    }
    ~OwnedConverter() { AudioConverterDispose(converter_); }
    OwnedConverter(const OwnedConverter&) = delete;
    OwnedConverter& operator=(const OwnedConverter&) = delete;
    operator AudioConverterRef() const { return converter_; }

  private:
    AudioConverterRef converter_ = nullptr;
};

/// A stream of float samples that is given in pieces.
struct Stream {
    std::vector<float> samples;
    UInt32 piece = 1000;
    std::size_t stalled = SIZE_MAX;  ///< answers 7 once when it gets there
    std::size_t given = 0;

    static OSStatus give(AudioConverterRef, UInt32* packets, AudioBufferList* list,
                         AudioStreamPacketDescription**, void* userData) {
        auto& self = *static_cast<Stream*>(userData);
        std::size_t count = std::min<std::size_t>(self.piece, self.samples.size() - self.given);
        if (self.given == self.stalled) {
            self.stalled = SIZE_MAX;
            *packets = 0;
            return 7;
        }
        if (self.given < self.stalled) {
            count = std::min(count, self.stalled - self.given);
        }
        *packets = static_cast<UInt32>(count);
        list->mBuffers[0].mData = self.samples.data() + self.given;
        list->mBuffers[0].mDataByteSize = static_cast<UInt32>(count * sizeof(float));
        self.given += count;
        return noErr;
    }
};

std::vector<float> tone(std::size_t frames, double rate) {
    std::vector<float> samples(frames);
    for (std::size_t i = 0; i < frames; ++i) {
        samples[i] = static_cast<float>(
            0.5 * std::sin(2 * std::numbers::pi * 440 * static_cast<double>(i) / rate));
    }
    return samples;
}

/// Up to `frames` frames of one channel; how many came is how many are returned.
std::vector<float> filled(AudioConverterRef converter, Stream& stream, UInt32 frames,
                          OSStatus expected = noErr) {
    std::vector<float> out(frames);
    AudioBufferList list{1, {{1, static_cast<UInt32>(frames * sizeof(float)), out.data()}}};
    EXPECT_EQ(
        AudioConverterFillComplexBuffer(converter, Stream::give, &stream, &frames, &list, nullptr),
        expected);
    EXPECT_EQ(list.mBuffers[0].mDataByteSize, frames * sizeof(float));
    out.resize(frames);
    return out;
}

TEST(AudioConverter, TurnsIntegersIntoFloatsAndOneChannelIntoTwo) {
    const OwnedConverter converter(integers(44100, 1), floats(44100, 2));
    const std::int16_t in[] = {16384, -32768};
    float out[4] = {};
    UInt32 size = sizeof out;
    ASSERT_EQ(AudioConverterConvertBuffer(converter, sizeof in, in, &size, out), noErr);
    EXPECT_EQ(size, sizeof out);
    EXPECT_EQ(out[0], 0.5F);
    EXPECT_EQ(out[1], 0.5F);
    EXPECT_EQ(out[2], -1.0F);
    EXPECT_EQ(out[3], -1.0F);
}

TEST(AudioConverter, SwapsBytes) {
    const OwnedConverter converter(integers(8000, 1, kAudioFormatFlagIsBigEndian),
                                   integers(8000, 1));
    const unsigned char in[] = {0x12, 0x34};
    std::int16_t out = 0;
    UInt32 size = sizeof out;
    ASSERT_EQ(AudioConverterConvertBuffer(converter, sizeof in, in, &size, &out), noErr);
    EXPECT_EQ(out, 0x1234);
}

TEST(AudioConverter, RefusesPartsOfFramesSmallRoomAndOtherRatesInOneGo) {
    const OwnedConverter converter(integers(44100, 2), floats(44100, 2));
    const std::int16_t in[4] = {};
    float out[4] = {};
    UInt32 size = sizeof out;
    EXPECT_EQ(AudioConverterConvertBuffer(converter, 6, in, &size, out),
              kAudioConverterErr_InvalidInputSize);
    size = 8;
    EXPECT_EQ(AudioConverterConvertBuffer(converter, sizeof in, in, &size, out),
              kAudioConverterErr_InvalidOutputSize);
    const OwnedConverter other(integers(44100, 2), floats(48000, 2));
    size = sizeof out;
    EXPECT_EQ(AudioConverterConvertBuffer(other, sizeof in, in, &size, out),
              kAudioConverterErr_OperationNotSupported);
}

TEST(AudioConverter, ConvertsListsOfPlanes) {
    AudioStreamBasicDescription planar = floats(44100, 2);
    planar.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
    planar.mBytesPerFrame = planar.mBytesPerPacket = 4;
    const OwnedConverter converter(planar, integers(44100, 2));
    std::vector<float> left(2000, 0.25F);
    std::vector<float> right(2000, -0.25F);
    std::vector<std::byte> memory(8 + 2 * sizeof(AudioBuffer));
    auto& in = *reinterpret_cast<AudioBufferList*>(memory.data());
    in.mNumberBuffers = 2;
    AudioBuffer* const buffers = in.mBuffers;
    buffers[0] = {1, 8000, left.data()};
    buffers[1] = {1, 8000, right.data()};
    std::vector<std::int16_t> samples(4000);
    AudioBufferList out{1, {{2, 8000, samples.data()}}};
    ASSERT_EQ(AudioConverterConvertComplexBuffer(converter, 2000, &in, &out), noErr);
    EXPECT_EQ(samples[0], 8192);
    EXPECT_EQ(samples[3999], -8192);
}

TEST(AudioConverter, ChangesTheRateWithoutMovingTheSound) {
    const OwnedConverter converter(floats(44100, 1), floats(48000, 1));
    Stream stream{tone(44100, 44100)};
    std::vector<float> out;
    for (std::vector<float> part = filled(converter, stream, 700); !part.empty();
         part = filled(converter, stream, 700)) {
        out.insert(out.end(), part.begin(), part.end());
    }
    EXPECT_NEAR(static_cast<double>(out.size()), 48000, 1);
    const std::vector<float> wanted = tone(48000, 48000);
    for (std::size_t i = 200; i < 47800; ++i) {
        // Half a frame off at most: 440 Hz change by 0.029 in a frame at half scale.
        ASSERT_NEAR(out[i], wanted[i], 0.016) << i;
    }
}

TEST(AudioConverter, GoesOnWithoutAGapWhenTheInputStalled) {
    const OwnedConverter even(floats(44100, 1), floats(48000, 1));
    Stream whole{tone(5000, 44100)};
    const std::vector<float> wanted = filled(even, whole, 4000);

    const OwnedConverter converter(floats(44100, 1), floats(48000, 1));
    Stream stream{tone(5000, 44100), 333, 1234};
    std::vector<float> out = filled(converter, stream, 4000, 7);
    EXPECT_LT(out.size(), 1400U);
    const std::vector<float> rest =
        filled(converter, stream, static_cast<UInt32>(4000 - out.size()));
    out.insert(out.end(), rest.begin(), rest.end());
    EXPECT_EQ(out, wanted);
}

TEST(AudioConverter, BeginsANewStreamAfterAReset) {
    const OwnedConverter converter(floats(44100, 1), floats(22050, 1));
    Stream stream{tone(1000, 44100)};
    const std::vector<float> first = filled(converter, stream, 2000);
    EXPECT_EQ(first.size(), 500U);
    stream.given = 0;
    EXPECT_TRUE(filled(converter, stream, 2000).empty());
    ASSERT_EQ(AudioConverterReset(converter), noErr);
    EXPECT_EQ(filled(converter, stream, 2000), first);
}

TEST(AudioConverter, FollowsAChannelMap) {
    const OwnedConverter converter(integers(44100, 2), integers(44100, 3));
    SInt32 map[3] = {};
    UInt32 size = sizeof map;
    ASSERT_EQ(AudioConverterGetProperty(converter, kAudioConverterChannelMap, &size, map), noErr);
    EXPECT_EQ(map[1], 1);
    EXPECT_EQ(map[2], -1);
    const SInt32 wanted[3] = {1, -1, 0};
    ASSERT_EQ(
        AudioConverterSetProperty(converter, kAudioConverterChannelMap, sizeof wanted, wanted),
        noErr);
    const std::int16_t in[] = {100, 200};
    std::int16_t out[3] = {9, 9, 9};
    size = sizeof out;
    ASSERT_EQ(AudioConverterConvertBuffer(converter, sizeof in, in, &size, out), noErr);
    EXPECT_EQ(out[0], 200);
    EXPECT_EQ(out[1], 0);
    EXPECT_EQ(out[2], 100);
    const SInt32 beyond[3] = {0, 1, 2};
    EXPECT_EQ(
        AudioConverterSetProperty(converter, kAudioConverterChannelMap, sizeof beyond, beyond),
        kAudio_ParamError);
}

TEST(AudioConverter, SaysHowMuchRoomIsNeeded) {
    const OwnedConverter converter(integers(44100, 2), floats(44100, 2));
    UInt32 bytes = 400;
    UInt32 size = sizeof bytes;
    ASSERT_EQ(AudioConverterGetProperty(converter, kAudioConverterPropertyCalculateOutputBufferSize,
                                        &size, &bytes),
              noErr);
    EXPECT_EQ(bytes, 800U);
    ASSERT_EQ(AudioConverterGetProperty(converter, kAudioConverterPropertyCalculateInputBufferSize,
                                        &size, &bytes),
              noErr);
    EXPECT_EQ(bytes, 400U);
    AudioStreamBasicDescription now{};
    size = sizeof now;
    ASSERT_EQ(AudioConverterGetProperty(converter, kAudioConverterCurrentOutputStreamDescription,
                                        &size, &now),
              noErr);
    EXPECT_EQ(now.mBytesPerFrame, 8U);
    EXPECT_EQ(AudioConverterSetProperty(converter, kAudioConverterCurrentOutputStreamDescription,
                                        sizeof now, &now),
              kAudioConverterErr_OperationNotSupported);
}

TEST(AudioConverter, KeepsItsQualityAndKnowsNoCodecs) {
    const OwnedConverter converter(floats(44100, 1), floats(48000, 1));
    UInt32 quality = kAudioConverterQuality_Low;
    ASSERT_EQ(AudioConverterSetProperty(converter, kAudioConverterSampleRateConverterQuality,
                                        sizeof quality, &quality),
              noErr);
    quality = 0;
    UInt32 size = sizeof quality;
    ASSERT_EQ(AudioConverterGetProperty(converter, kAudioConverterSampleRateConverterQuality, &size,
                                        &quality),
              noErr);
    EXPECT_EQ(quality, kAudioConverterQuality_Low);
    EXPECT_EQ(
        AudioConverterGetPropertyInfo(converter, kAudioConverterEncodeBitRate, &size, nullptr),
        kAudioConverterErr_PropertyNotSupported);
    AudioStreamBasicDescription coded = floats(44100, 1);
    coded.mFormatID = kAudioFormatMPEG4AAC;
    AudioConverterRef none = nullptr;
    const AudioStreamBasicDescription plain = floats(44100, 1);
    EXPECT_EQ(AudioConverterNew(&coded, &plain, &none), kAudioConverterErr_FormatNotSupported);
    EXPECT_EQ(none, nullptr);
}

TEST(AudioConverter, ADisposedOneIsRefused) {
    const AudioStreamBasicDescription format = floats(44100, 1);
    AudioConverterRef converter = nullptr;
    ASSERT_EQ(AudioConverterNewSpecific(&format, &format, 0, nullptr, &converter), noErr);
    ASSERT_EQ(AudioConverterDispose(converter), noErr);
    EXPECT_EQ(AudioConverterReset(converter), kAudio_ParamError);
    EXPECT_EQ(AudioConverterDispose(converter), kAudio_ParamError);
    EXPECT_EQ(AudioConverterDispose(nullptr), kAudio_ParamError);
}

}  // namespace
