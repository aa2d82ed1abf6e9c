#include <cmath>

#include "PlatformFixture.h"

namespace platform {
namespace {

/// A mixer whose bus 0 has 0.5 on the left and 0.25 on the right.
class MeteredMixer : public testing::Test {
  protected:
    MeteredMixer() {
        source.body = [this](auto&, auto&, UInt32, UInt32 count, AudioBufferList* list) {
            for (UInt32 i = 0; i < count; ++i) {
                samples<float>(list, 0)[i] = 0.5F * loudness;
                samples<float>(list, 1)[i] = 0.25F * loudness;
            }
            return OSStatus{noErr};
        };
        EXPECT_EQ(setCallback(unit, 0, source), noErr);
        EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    }
    void meter(AudioUnitScope scope, UInt32 on) {
        EXPECT_EQ(set(unit, kAudioUnitProperty_MeteringMode, scope, 0, on), noErr);
    }
    void setVolume(AudioUnitScope scope, Float32 volume) {
        EXPECT_EQ(AudioUnitSetParameter(unit, kMultiChannelMixerParam_Volume, scope, 0, volume, 0),
                  noErr);
    }
    Float32 level(AudioUnitParameterID id, AudioUnitScope scope) {
        Float32 value = 99;
        EXPECT_EQ(AudioUnitGetParameter(unit, id, scope, 0, &value), noErr);
        return value;
    }
    std::vector<float> rendered(UInt32 count) {
        std::vector<float> left(count), right(count);
        std::vector<std::byte> memory(sizeof(AudioBufferList) + sizeof(AudioBuffer));
        auto& list = *reinterpret_cast<AudioBufferList*>(memory.data());
        list.mNumberBuffers = 2;
        AudioBuffer* const buffers = list.mBuffers;
        buffers[0] = {1, count * 4, left.data()};
        buffers[1] = {1, count * 4, right.data()};
        AudioTimeStamp time{};
        time.mFlags = kAudioTimeStampSampleTimeValid;
        EXPECT_EQ(AudioUnitRender(unit, nullptr, &time, 0, count, &list), noErr);
        return left;
    }
    static constexpr Float32 half = -6.0206F;      // dB of 0.5
    static constexpr Float32 quarter = -12.0412F;  // dB of 0.25
    static constexpr Float32 near = 0.001F;

    const OwnedUnit unit{mixer()};
    Callback source;
    Float32 loudness = 1;
};

TEST_F(MeteredMixer, TellsTheLevelsOfABusBeforeAndBehindItsVolume) {
    meter(kAudioUnitScope_Input, 1);
    setVolume(kAudioUnitScope_Input, 0.5F);
    const std::vector<float> out = rendered(64);
    EXPECT_EQ(out, std::vector<float>(64, 0.25F));
    constexpr auto side = kAudioUnitScope_Input;
    EXPECT_NEAR(level(kMultiChannelMixerParam_PreAveragePower, side), half, near);
    EXPECT_NEAR(level(kMultiChannelMixerParam_PreAveragePower + 1, side), quarter, near);
    EXPECT_NEAR(level(kMultiChannelMixerParam_PrePeakHoldLevel, side), half, near);
    EXPECT_NEAR(level(kMultiChannelMixerParam_PostAveragePower, side), half + half, near);
    EXPECT_NEAR(level(kMultiChannelMixerParam_PostPeakHoldLevel + 1, side), quarter + half, near);
}

TEST_F(MeteredMixer, TellsTheLevelsOfTheMix) {
    meter(kAudioUnitScope_Output, 1);
    setVolume(kAudioUnitScope_Output, 0.5F);
    static_cast<void>(rendered(64));
    constexpr auto side = kAudioUnitScope_Output;
    EXPECT_NEAR(level(kMultiChannelMixerParam_PreAveragePower, side), half, near);
    EXPECT_NEAR(level(kMultiChannelMixerParam_PostPeakHoldLevel, side), half + half, near);
}

TEST_F(MeteredMixer, TellsNothingWhileItIsOff) {
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_MeteringMode, kAudioUnitScope_Input, 0), 0U);
    meter(kAudioUnitScope_Input, 1);
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_MeteringMode, kAudioUnitScope_Input, 0), 1U);
    static_cast<void>(rendered(64));
    meter(kAudioUnitScope_Input, 0);
    EXPECT_EQ(level(kMultiChannelMixerParam_PreAveragePower, kAudioUnitScope_Input), -120);
    EXPECT_EQ(level(kMultiChannelMixerParam_PreAveragePower, kAudioUnitScope_Output), -120);
}

TEST_F(MeteredMixer, ABusThatIsNoPartOfTheSliceIsSilent) {
    meter(kAudioUnitScope_Input, 1);
    static_cast<void>(rendered(64));
    EXPECT_NEAR(level(kMultiChannelMixerParam_PreAveragePower, kAudioUnitScope_Input), half, near);
    EXPECT_EQ(
        AudioUnitSetParameter(unit, kMultiChannelMixerParam_Enable, kAudioUnitScope_Input, 0, 0, 0),
        noErr);
    static_cast<void>(rendered(64));
    static_cast<void>(rendered(64));
    EXPECT_EQ(level(kMultiChannelMixerParam_PreAveragePower, kAudioUnitScope_Input), -120);
}

TEST_F(MeteredMixer, HoldsAPeakForASecond) {
    meter(kAudioUnitScope_Input, 1);
    static_cast<void>(rendered(441));
    loudness = 0.5F;
    for (int i = 0; i < 100; ++i) {
        static_cast<void>(rendered(441));
    }
    constexpr auto side = kAudioUnitScope_Input;
    EXPECT_NEAR(level(kMultiChannelMixerParam_PreAveragePower, side), quarter, near);
    EXPECT_NEAR(level(kMultiChannelMixerParam_PrePeakHoldLevel, side), half, near);
    static_cast<void>(rendered(441));
    EXPECT_NEAR(level(kMultiChannelMixerParam_PrePeakHoldLevel, side), quarter, near);
}

TEST_F(MeteredMixer, MetersAreOnlyRead) {
    EXPECT_EQ(AudioUnitSetParameter(unit, kMultiChannelMixerParam_PreAveragePower,
                                    kAudioUnitScope_Input, 0, 0, 0),
              kAudioUnitErr_InvalidParameter);
    AudioUnitParameterEvent event{};
    event.scope = kAudioUnitScope_Input;
    event.parameter = kMultiChannelMixerParam_PreAveragePower;
    event.eventType = kParameterEvent_Immediate;
    EXPECT_EQ(AudioUnitScheduleParameters(unit, &event, 1), kAudioUnitErr_InvalidParameter);
}

AudioUnitParameterInfo infoOf(AudioUnit unit, AudioUnitScope scope, AudioUnitParameterID id) {
    return get<AudioUnitParameterInfo>(unit, kAudioUnitProperty_ParameterInfo, scope, id);
}

TEST_F(MeteredMixer, DescribesItsParameters) {
    const AudioUnitParameterInfo volume =
        infoOf(unit, kAudioUnitScope_Input, kMultiChannelMixerParam_Volume);
    EXPECT_STREQ(volume.name, "volume");
    EXPECT_EQ(volume.unit, UInt32{kAudioUnitParameterUnit_LinearGain});
    EXPECT_EQ(volume.minValue, 0);
    EXPECT_EQ(volume.maxValue, 1);
    EXPECT_EQ(volume.defaultValue, 1);
    EXPECT_NE(volume.flags & kAudioUnitParameterFlag_IsWritable, 0U);
    const AudioUnitParameterInfo pan =
        infoOf(unit, kAudioUnitScope_Input, kMultiChannelMixerParam_Pan);
    EXPECT_EQ(pan.minValue, -1);
    EXPECT_EQ(pan.defaultValue, 0);
    const AudioUnitParameterInfo meter =
        infoOf(unit, kAudioUnitScope_Output, kMultiChannelMixerParam_PostPeakHoldLevel + 1);
    EXPECT_EQ(meter.unit, UInt32{kAudioUnitParameterUnit_Decibels});
    EXPECT_EQ(meter.flags & kAudioUnitParameterFlag_IsWritable, 0U);
    EXPECT_NE(meter.flags & kAudioUnitParameterFlag_MeterReadOnly, 0U);
    EXPECT_EQ(
        AudioUnitGetPropertyInfo(unit, kAudioUnitProperty_ParameterInfo, kAudioUnitScope_Output,
                                 kMultiChannelMixerParam_Pan, nullptr, nullptr),
        kAudioUnitErr_InvalidParameter);
}

TEST_F(MeteredMixer, WhatSaysThatItRampsDoes) {
    for (const AudioUnitParameterID id : {AudioUnitParameterID{kMultiChannelMixerParam_Volume},
                                          AudioUnitParameterID{kMultiChannelMixerParam_Enable},
                                          AudioUnitParameterID{kMultiChannelMixerParam_Pan}}) {
        AudioUnitParameterEvent event{};
        event.scope = kAudioUnitScope_Input;
        event.parameter = id;
        event.eventType = kParameterEvent_Ramped;
        event.eventValues.ramp = {0, 64, 0, 1};
        const bool saysSo =
            (infoOf(unit, kAudioUnitScope_Input, id).flags & kAudioUnitParameterFlag_CanRamp) != 0;
        EXPECT_EQ(AudioUnitScheduleParameters(unit, &event, 1) == noErr, saysSo) << id;
    }
}

}  // namespace
}  // namespace platform
