#include <algorithm>
#include <cstdint>
#include <random>

#include "BufferLists.h"
#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

/// A mixer with a 16-bit output that is rendered by hand.
class Mixing : public testing::Test {
  protected:
    static constexpr UInt32 frames = 512;
    static constexpr double rate = 44100;

    Mixing() {
        EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, int16Interleaved(rate, 2)), noErr);
    }

    /// A bus of 16-bit stereo with the same two samples in each frame.
    void addConstant(UInt32 bus, Callback& callback, std::int16_t left, std::int16_t right) {
        callback.body = [=, this](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32 asked,
                                  UInt32 count, AudioBufferList* data) {
            EXPECT_EQ(asked, bus);
            order.push_back(asked);
            for (UInt32 i = 0; i < count; ++i) {
                samples<std::int16_t>(data)[2 * i] = left;
                samples<std::int16_t>(data)[2 * i + 1] = right;
            }
            return OSStatus{noErr};
        };
        ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, bus, int16Interleaved(rate, 2)), noErr);
        ASSERT_EQ(setCallback(unit, bus, callback), noErr);
    }
    OSStatus parameter(AudioUnitParameterID id, AudioUnitScope scope, UInt32 bus, Float32 value) {
        return AudioUnitSetParameter(unit, id, scope, bus, value, 0);
    }
    void render() {
        ASSERT_EQ(AudioUnitInitialize(unit), noErr);
        flags = 0;
        ASSERT_EQ(AudioUnitRender(unit, &flags, &time, 0, frames, list.get()), noErr);
    }
    std::int16_t sample(std::size_t index) { return list.samples<std::int16_t>()[index]; }

    const OwnedUnit unit{mixer()};
    OwnedBufferList list = OwnedBufferList::interleaved(2, frames * 4);
    AudioTimeStamp time{};
    AudioUnitRenderActionFlags flags = 0;
    std::vector<UInt32> order;
};

TEST_F(Mixing, OneTrackPassesBitByBit) {
    std::mt19937 random(7);
    std::vector<std::int16_t> track(2 * frames);
    for (auto& value : track) {
        value = static_cast<std::int16_t>(random());
    }
    track[0] = INT16_MIN;
    track[1] = INT16_MAX;
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 count,
                        AudioBufferList* data) {
        std::copy_n(track.data(), 2 * count, samples<std::int16_t>(data));
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 1, int16Interleaved(rate, 2)), noErr);
    ASSERT_EQ(setCallback(unit, 1, callback), noErr);
    render();
    EXPECT_EQ(list.copyOf<std::int16_t>(), track);
}

TEST_F(Mixing, AddsItsBusesInBusOrder) {
    Callback a;
    Callback b;
    Callback c;
    addConstant(5, a, 100, -100);
    addConstant(0, b, 20, 30);
    addConstant(2, c, 3, 4);
    render();
    EXPECT_EQ(order, (std::vector<UInt32>{0, 2, 5}));
    EXPECT_EQ(sample(0), 123);
    EXPECT_EQ(sample(1), -66);
    EXPECT_EQ(sample(2 * frames - 1), -66);
}

TEST_F(Mixing, SaturatesAtTheIntegerOutput) {
    Callback a;
    Callback b;
    addConstant(0, a, 30000, -30000);
    addConstant(1, b, 30000, -30000);
    render();
    EXPECT_EQ(sample(0), INT16_MAX);
    EXPECT_EQ(sample(1), INT16_MIN);
}

TEST_F(Mixing, HasNoCeilingAtAFloatOutput) {
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatPlanar(rate, 2)), noErr);
    Callback a;
    Callback b;
    addConstant(0, a, 24576, 0);
    addConstant(1, b, 24576, 0);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList planes = OwnedBufferList::planar(2, frames * 4);
    ASSERT_EQ(AudioUnitRender(unit, &flags, &time, 0, frames, planes.get()), noErr);
    EXPECT_EQ(planes.samples<float>()[frames - 1], 1.5F);
}

TEST_F(Mixing, WithoutInputsIsSilentAndSaysSo) {
    list.samples<std::int16_t>()[9] = 5;
    render();
    EXPECT_EQ(sample(9), 0);
    EXPECT_EQ(flags, static_cast<UInt32>(kAudioUnitRenderAction_OutputIsSilence));
}

TEST_F(Mixing, AppliesTheVolumeOfABus) {
    Callback a;
    Callback b;
    addConstant(0, a, 1000, 2000);
    addConstant(1, b, 10, 20);
    ASSERT_EQ(parameter(kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0, 0.5F), noErr);
    render();
    EXPECT_EQ(sample(0), 510);
    EXPECT_EQ(sample(1), 1020);
}

TEST_F(Mixing, AppliesTheVolumeOfTheOutput) {
    Callback a;
    addConstant(0, a, 1000, -2000);
    ASSERT_EQ(parameter(kMultiChannelMixerParam_Volume, kAudioUnitScope_Output, 0, 0.25F), noErr);
    render();
    EXPECT_EQ(sample(0), 250);
    EXPECT_EQ(sample(1), -500);
}

TEST_F(Mixing, PansByTakingAwayOnTheOtherSide) {
    Callback a;
    addConstant(0, a, 1000, 1000);
    ASSERT_EQ(parameter(kMultiChannelMixerParam_Pan, kAudioUnitScope_Input, 0, 0.5F), noErr);
    render();
    EXPECT_EQ(sample(0), 500);
    EXPECT_EQ(sample(1), 1000);
    ASSERT_EQ(parameter(kMultiChannelMixerParam_Pan, kAudioUnitScope_Input, 0, -1), noErr);
    render();
    EXPECT_EQ(sample(0), 1000);
    EXPECT_EQ(sample(1), 0);
}

TEST_F(Mixing, DoesNotPullADisabledBus) {
    Callback a;
    Callback b;
    addConstant(0, a, 1000, 1000);
    addConstant(1, b, 1, 1);
    ASSERT_EQ(parameter(kMultiChannelMixerParam_Enable, kAudioUnitScope_Input, 0, 0), noErr);
    render();
    EXPECT_EQ(a.calls, 0);
    EXPECT_EQ(sample(0), 1);
    ASSERT_EQ(parameter(kMultiChannelMixerParam_Enable, kAudioUnitScope_Input, 0, 1), noErr);
    render();
    EXPECT_EQ(sample(0), 1001);
}

TEST_F(Mixing, GoesOnWithoutABusThatFails) {
    Callback a;
    Callback b;
    addConstant(0, a, 1000, 1000);
    addConstant(1, b, 7, 8);
    a.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 count,
                AudioBufferList* data) {
        std::fill_n(samples<std::int16_t>(data), 2 * count, std::int16_t{500});
        return OSStatus{-1};
    };
    render();
    EXPECT_EQ(sample(0), 7);
    EXPECT_EQ(sample(1), 8);
}

TEST_F(Mixing, TakesEachBusInItsOwnFormat) {
    Callback mono;
    Callback planar;
    Callback wide;
    mono.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 count,
                   AudioBufferList* data) {
        EXPECT_EQ(data->mBuffers[0].mDataByteSize, count * 2);
        std::fill_n(samples<std::int16_t>(data), count, std::int16_t{1000});
        return OSStatus{noErr};
    };
    planar.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 count,
                     AudioBufferList* data) {
        EXPECT_EQ(data->mNumberBuffers, 2U);
        std::fill_n(samples<float>(data, 0), count, 0.25F);
        std::fill_n(samples<float>(data, 1), count, -0.25F);
        return OSStatus{noErr};
    };
    wide.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 count,
                   AudioBufferList* data) {
        std::fill_n(samples<std::int32_t>(data), 2 * count, 4 << 16);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, int16Interleaved(rate, 1)), noErr);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 1, floatPlanar(rate, 2)), noErr);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 2, int32Interleaved(rate, 2)), noErr);
    ASSERT_EQ(setCallback(unit, 0, mono), noErr);
    ASSERT_EQ(setCallback(unit, 1, planar), noErr);
    ASSERT_EQ(setCallback(unit, 2, wide), noErr);
    render();
    EXPECT_EQ(sample(0), 1000 + 8192 + 4);
    EXPECT_EQ(sample(1), 1000 - 8192 + 4);
}

TEST_F(Mixing, HasTheOutputFormatOfAnOldPhone) {
    auto format = int16Interleaved(rate, 2);
    format.mFormatFlags = kAudioFormatFlagIsSignedInteger;
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, format), noErr);
    Callback a;
    addConstant(0, a, 123, -456);
    render();
    EXPECT_EQ(sample(0), 123);
    EXPECT_EQ(sample(1), -456);
}

TEST_F(Mixing, ABusFormatMayChangeBetweenRenders) {
    Callback a;
    addConstant(0, a, 1000, 1000);
    render();
    a.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 count,
                AudioBufferList* data) {
        EXPECT_EQ(data->mNumberBuffers, 2U);
        std::fill_n(samples<float>(data, 0), count, 0.5F);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(rate, 2)), noErr);
    render();
    EXPECT_EQ(sample(0), 16384);
    EXPECT_EQ(sample(1), 0);
}

TEST_F(Mixing, ACallbackOfABusIsToldTheTimeOfTheRender) {
    AudioTimeStamp seen{};
    Callback a;
    a.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp& when, UInt32, UInt32 count,
                 AudioBufferList*) {
        EXPECT_EQ(count, frames);
        seen = when;
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, a), noErr);
    time.mSampleTime = 12345;
    time.mHostTime = 678;
    time.mFlags = 3;
    render();
    EXPECT_EQ(seen.mSampleTime, 12345);
    EXPECT_EQ(seen.mHostTime, 678U);
    EXPECT_EQ(seen.mFlags, 3U);
}

TEST_F(Mixing, ANewBusHasDefaultLevelsAgain) {
    ASSERT_EQ(set(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, UInt32{9}),
              noErr);
    ASSERT_EQ(parameter(kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 8, 0), noErr);
    ASSERT_EQ(set(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, UInt32{8}),
              noErr);
    ASSERT_EQ(set(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, UInt32{9}),
              noErr);
    Callback a;
    addConstant(8, a, 9, 9);
    render();
    EXPECT_EQ(sample(0), 9);
}

}  // namespace
}  // namespace platform
