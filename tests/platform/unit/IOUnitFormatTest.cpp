#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

struct Case {
    const char* name;
    AudioStreamBasicDescription format;
    void (*write)(AudioBufferList* list, UInt32 frame, double left, double right);
};

template <class Sample>
Sample quantised(double value) {
    return static_cast<Sample>(
        std::lrint(value * -static_cast<double>(std::numeric_limits<Sample>::min())));
}

AudioStreamBasicDescription bigEndian(AudioStreamBasicDescription format) {
    format.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    return format;
}

AudioStreamBasicDescription planar16() {
    return linear(deviceRate,
                  kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked |
                      kAudioFormatFlagIsNonInterleaved,
                  16, 2, 1);
}

const Case cases[] = {
    {"int16", int16Interleaved(deviceRate, 2),
     [](AudioBufferList* list, UInt32 i, double left, double right) {
         samples<std::int16_t>(list)[2 * i] = quantised<std::int16_t>(left);
         samples<std::int16_t>(list)[2 * i + 1] = quantised<std::int16_t>(right);
     }},
    {"int16NotPacked", linear(deviceRate, kAudioFormatFlagIsSignedInteger, 16, 2, 2),
     [](AudioBufferList* list, UInt32 i, double left, double right) {
         samples<std::int16_t>(list)[2 * i] = quantised<std::int16_t>(left);
         samples<std::int16_t>(list)[2 * i + 1] = quantised<std::int16_t>(right);
     }},
    {"int16BigEndian", bigEndian(int16Interleaved(deviceRate, 2)),
     [](AudioBufferList* list, UInt32 i, double left, double right) {
         const auto swapped = [](std::int16_t value) {
             return __builtin_bswap16(static_cast<std::uint16_t>(value));
         };
         samples<std::uint16_t>(list)[2 * i] = swapped(quantised<std::int16_t>(left));
         samples<std::uint16_t>(list)[2 * i + 1] = swapped(quantised<std::int16_t>(right));
     }},
    {"int16Planar", planar16(),
     [](AudioBufferList* list, UInt32 i, double left, double right) {
         samples<std::int16_t>(list, 0)[i] = quantised<std::int16_t>(left);
         samples<std::int16_t>(list, 1)[i] = quantised<std::int16_t>(right);
     }},
    {"int32", int32Interleaved(deviceRate, 2),
     [](AudioBufferList* list, UInt32 i, double left, double right) {
         samples<std::int32_t>(list)[2 * i] = quantised<std::int32_t>(left);
         samples<std::int32_t>(list)[2 * i + 1] = quantised<std::int32_t>(right);
     }},
    {"int8",
     linear(deviceRate, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked, 8, 2, 2),
     [](AudioBufferList* list, UInt32 i, double left, double right) {
         samples<std::int8_t>(list)[2 * i] = quantised<std::int8_t>(left);
         samples<std::int8_t>(list)[2 * i + 1] = quantised<std::int8_t>(right);
     }},
    {"floatInterleaved", floatInterleaved(deviceRate, 2),
     [](AudioBufferList* list, UInt32 i, double left, double right) {
         samples<float>(list)[2 * i] = static_cast<float>(left);
         samples<float>(list)[2 * i + 1] = static_cast<float>(right);
     }},
    {"floatPlanar", floatPlanar(deviceRate, 2),
     [](AudioBufferList* list, UInt32 i, double left, double right) {
         samples<float>(list, 0)[i] = static_cast<float>(left);
         samples<float>(list, 1)[i] = static_cast<float>(right);
     }},
};

class ProgramFormats : public testing::TestWithParam<Case> {};

TEST_P(ProgramFormats, ArePlayedAtTheirLevels) {
    Player player;
    const OwnedUnit unit(remoteIO());
    Callback callback;
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                       AudioBufferList* list) {
        for (UInt32 i = 0; i < frames; ++i) {
            GetParam().write(list, i, 0.5, -0.25);
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, GetParam().format), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(256);
    EXPECT_EQ(player.left[0], 0.5F);
    EXPECT_EQ(player.left[255], 0.5F);
    EXPECT_EQ(player.right[0], -0.25F);
    EXPECT_EQ(player.right[255], -0.25F);
}

INSTANTIATE_TEST_SUITE_P(All, ProgramFormats, testing::ValuesIn(cases),
                         [](const auto& it) { return std::string(it.param.name); });

/// A tone as a callback that counts its own frames, with what it was asked for.
struct Tone {
    Tone(double toneFrequency, double toneRate) : frequency(toneFrequency), rate(toneRate) {
        callback.body = [this](AudioUnitRenderActionFlags&, const AudioTimeStamp& time, UInt32,
                               UInt32 count, AudioBufferList* list) {
            EXPECT_EQ(time.mSampleTime, static_cast<Float64>(frames));
            for (UInt32 i = 0; i < count; ++i) {
                const auto value =
                    static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * frequency *
                                                      static_cast<double>(frames + i) / rate));
                for (UInt32 buffer = 0; buffer < list->mNumberBuffers; ++buffer) {
                    samples<float>(list, buffer)[i] = value;
                }
            }
            frames += count;
            most = std::max(most, count);
            return OSStatus{noErr};
        };
    }
    double frequency;
    double rate;
    UInt64 frames = 0;
    UInt32 most = 0;
    Callback callback;
};

class ProgramRates : public testing::TestWithParam<double> {};

TEST_P(ProgramRates, PlayATonesPitchAndLevelWithoutDrift) {
    Player player;
    const OwnedUnit unit(remoteIO());
    Tone tone(1000, GetParam());
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(GetParam(), 2)), noErr);
    ASSERT_EQ(setCallback(unit, 0, tone.callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(480, 300);
    const double expected = 480.0 * 300 * GetParam() / deviceRate;
    EXPECT_NEAR(static_cast<double>(tone.frames), expected, 1);
    EXPECT_LE(tone.most, 4096U);
    EXPECT_NEAR(amplitude(player.left, 1000, deviceRate, 48000), 0.5, 0.001);
    EXPECT_NEAR(amplitude(player.right, 1000, deviceRate, 48000), 0.5, 0.001);
    EXPECT_LT(amplitude(player.left, 1100, deviceRate, 48000), 0.0005);
}

INSTANTIATE_TEST_SUITE_P(All, ProgramRates,
                         testing::Values(8000, 11025, 16000, 22050, 32000, 44100, 48000, 96000,
                                         192000));

TEST(ProgramChannels, MonoIsHeardOnBothSides) {
    Player player;
    const OwnedUnit unit(remoteIO());
    Tone tone(1000, 44100);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(44100, 1)), noErr);
    ASSERT_EQ(setCallback(unit, 0, tone.callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(480, 200);
    EXPECT_NEAR(amplitude(player.left, 1000, deviceRate, 48000), 0.5, 0.001);
    EXPECT_EQ(player.left, player.right);
}

TEST(ProgramChannels, BeyondTheDevicesAreNotHeard) {
    Player player;
    const OwnedUnit unit(remoteIO());
    Callback callback;
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                       AudioBufferList* list) {
        EXPECT_EQ(list->mNumberBuffers, 6U);
        for (UInt32 buffer = 0; buffer < 6; ++buffer) {
            std::fill_n(samples<float>(list, buffer), frames, static_cast<float>(buffer) / 8);
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(deviceRate, 6)), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    EXPECT_EQ(player.left[5], 0.0F);
    EXPECT_EQ(player.right[5], 0.125F);
}

TEST(ProgramFormatChanges, WorkWhileTheUnitPlays) {
    Player player;
    const OwnedUnit unit(remoteIO());
    UInt32 buffers = 0;
    UInt32 bytes = 0;
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                        AudioBufferList* list) {
        buffers = list->mNumberBuffers;
        bytes = list->mBuffers[0].mDataByteSize / frames;
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    EXPECT_EQ(buffers, 2U);
    EXPECT_EQ(bytes, 4U);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, int16Interleaved(44100, 1)), noErr);
    player.pump(64);
    EXPECT_EQ(buffers, 1U);
    EXPECT_EQ(bytes, 2U);
}

using Sides = std::vector<std::pair<AudioUnitScope, AudioUnitElement>>;
/// Of the speakers and of the microphone.
const Sides kDeviceSides{{kAudioUnitScope_Output, 0}, {kAudioUnitScope_Input, 1}};

void noteSide(void* sides, AudioUnit, AudioUnitPropertyID, AudioUnitScope scope,
              AudioUnitElement element) {
    static_cast<Sides*>(sides)->emplace_back(scope, element);
}

/// A tone that plays while the device gets another rate.
class DeviceRateChanges : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(setCallback(unit, 0, tone.callback), noErr);
        ASSERT_EQ(AudioUnitInitialize(unit), noErr);
        ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
        player.pump(480, 10);
        ASSERT_EQ(
            AudioUnitAddPropertyListener(unit, kAudioUnitProperty_StreamFormat, noteSide, &changes),
            noErr);
        ASSERT_EQ(TQManualDeviceSetSampleRate(32000), noErr);
    }
    /// As the next test expects it.
    void TearDown() override { ASSERT_EQ(TQManualDeviceSetSampleRate(deviceRate), noErr); }

    Player player;
    const OwnedUnit unit{remoteIO()};
    Tone tone{1000, 48000};
    Sides changes;
};

TEST_F(DeviceRateChanges, AreSeenOnTheDeviceSideOnlyAndPlayOn) {
    EXPECT_EQ(get<AudioStreamBasicDescription>(unit, kAudioUnitProperty_StreamFormat,
                                               kAudioUnitScope_Output, 0)
                  .mSampleRate,
              32000);
    EXPECT_EQ(get<AudioStreamBasicDescription>(unit, kAudioUnitProperty_StreamFormat,
                                               kAudioUnitScope_Input, 0)
                  .mSampleRate,
              48000);
    player.left.clear();
    player.pump(320, 200);
    EXPECT_EQ(changes, kDeviceSides);
    EXPECT_NEAR(amplitude(player.left, 1000, 32000, 32000), 0.5, 0.001);
}

TEST_F(DeviceRateChanges, AreToldOnceAlsoWhenAPropertyIsSetBeforeTheNextSlice) {
    ASSERT_EQ(setCallback(unit, 0, tone.callback), noErr);
    player.pump(320, 3);
    EXPECT_EQ(changes, kDeviceSides);
}

}  // namespace
}  // namespace platform
