#include <cmath>
#include <limits>

#include "PlatformFixture.h"

namespace platform {
namespace {

Float32 parameter(AudioUnit unit, AudioUnitParameterID id, AudioUnitScope scope, UInt32 element) {
    Float32 value = -99;
    EXPECT_EQ(AudioUnitGetParameter(unit, id, scope, element, &value), noErr);
    return value;
}

OSStatus setParameter(AudioUnit unit, AudioUnitParameterID id, AudioUnitScope scope, UInt32 element,
                      Float32 value) {
    return AudioUnitSetParameter(unit, id, scope, element, value, 0);
}

TEST(MixerParameters, HaveTheirDefaults) {
    const OwnedUnit unit(mixer());
    for (UInt32 bus = 0; bus < 8; ++bus) {
        EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, bus), 1);
        EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Enable, kAudioUnitScope_Input, bus), 1);
        EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Pan, kAudioUnitScope_Input, bus), 0);
    }
    EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Output, 0), 1);
}

TEST(MixerParameters, AreKeptPerBus) {
    const OwnedUnit unit(mixer());
    ASSERT_EQ(setParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 3, 0.25F),
              noErr);
    EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 3), 0.25F);
    EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 2), 1);
}

TEST(MixerParameters, StayInTheirRange) {
    const OwnedUnit unit(mixer());
    ASSERT_EQ(setParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0, 7),
              noErr);
    EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0), 1);
    ASSERT_EQ(setParameter(unit, kMultiChannelMixerParam_Pan, kAudioUnitScope_Input, 0, -3), noErr);
    EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Pan, kAudioUnitScope_Input, 0), -1);
    EXPECT_EQ(setParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0,
                           std::numeric_limits<Float32>::quiet_NaN()),
              kAudioUnitErr_InvalidParameterValue);
}

TEST(MixerParameters, BadIdsScopesAndBusesAreRefused) {
    const OwnedUnit unit(mixer());
    Float32 value = 0;
    EXPECT_EQ(AudioUnitGetParameter(unit, 42, kAudioUnitScope_Input, 0, &value),
              kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(setParameter(unit, kMultiChannelMixerParam_Pan, kAudioUnitScope_Output, 0, 0),
              kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(setParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Global, 0, 0),
              kAudioUnitErr_InvalidScope);
    EXPECT_EQ(setParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 8, 0),
              kAudioUnitErr_InvalidElement);
    EXPECT_EQ(setParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Output, 1, 0),
              kAudioUnitErr_InvalidElement);
    EXPECT_EQ(AudioUnitGetParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0,
                                    nullptr),
              kAudio_ParamError);
}

TEST(MixerParameters, AreListedByScope) {
    const OwnedUnit unit(mixer());
    AudioUnitParameterID ids[4] = {99, 99, 99, 99};
    UInt32 size = sizeof ids;
    ASSERT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_ParameterList, kAudioUnitScope_Input, 0,
                                   ids, &size),
              noErr);
    EXPECT_EQ(size, 12U);
    EXPECT_EQ(ids[0], 0U);
    EXPECT_EQ(ids[1], 1U);
    EXPECT_EQ(ids[2], 2U);
    UInt32 none = 7;
    ASSERT_EQ(AudioUnitGetPropertyInfo(unit, kAudioUnitProperty_ParameterList,
                                       kAudioUnitScope_Global, 0, &none, nullptr),
              noErr);
    EXPECT_EQ(none, 0U);
}

struct RampedMixer : testing::Test {
    RampedMixer() {
        ones.body = [](auto&, auto&, UInt32, UInt32 frames, AudioBufferList* list) {
            for (UInt32 i = 0; i < frames; ++i) {
                samples<float>(list, 0)[i] = samples<float>(list, 1)[i] = 1;
            }
            return OSStatus{noErr};
        };
        EXPECT_EQ(setCallback(unit, 0, ones), noErr);
        EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    }
    std::vector<float> rendered(UInt32 frames) {
        std::vector<float> left(frames), right(frames);
        std::vector<std::byte> memory(sizeof(AudioBufferList) + sizeof(AudioBuffer));
        auto& list = *reinterpret_cast<AudioBufferList*>(memory.data());
        list.mNumberBuffers = 2;
        AudioBuffer* const buffers = list.mBuffers;
        buffers[0] = {1, frames * 4, left.data()};
        buffers[1] = {1, frames * 4, right.data()};
        AudioTimeStamp time{};
        time.mSampleTime = at;
        time.mFlags = kAudioTimeStampSampleTimeValid;
        at += frames;
        EXPECT_EQ(AudioUnitRender(unit, nullptr, &time, 0, frames, &list), noErr);
        return left;
    }
    OSStatus ramp(AudioUnitParameterID id, AudioUnitScope scope, SInt32 start, UInt32 frames,
                  Float32 from, Float32 to) {
        AudioUnitParameterEvent event{};
        event.scope = scope;
        event.parameter = id;
        event.eventType = kParameterEvent_Ramped;
        event.eventValues.ramp = {start, frames, from, to};
        return AudioUnitScheduleParameters(unit, &event, 1);
    }

    const OwnedUnit unit{mixer()};
    Callback ones;
    Float64 at = 0;
};

TEST_F(RampedMixer, RampsVolumeToTheFrameAndAcrossSlices) {
    ASSERT_EQ(setParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0, 0),
              noErr);
    ASSERT_EQ(ramp(kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 16, 32, 0, 1), noErr);
    std::vector<float> out = rendered(32);
    const std::vector<float> rest = rendered(32);
    out.insert(out.end(), rest.begin(), rest.end());
    for (UInt32 i = 0; i < 64; ++i) {
        const float wanted = i < 16 ? 0 : std::min(1.0F, static_cast<float>(i - 16) / 32);
        EXPECT_FLOAT_EQ(out[i], wanted) << i;
    }
    EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0), 1);
    EXPECT_EQ(rendered(4), std::vector<float>(4, 1.0F));
}

TEST_F(RampedMixer, RampsPanAndOutputVolume) {
    ASSERT_EQ(ramp(kMultiChannelMixerParam_Pan, kAudioUnitScope_Input, 0, 4, 0, 1), noErr);
    EXPECT_EQ(rendered(6), (std::vector<float>{1, 0.75F, 0.5F, 0.25F, 0, 0}));
    ASSERT_EQ(setParameter(unit, kMultiChannelMixerParam_Pan, kAudioUnitScope_Input, 0, 0), noErr);
    ASSERT_EQ(ramp(kMultiChannelMixerParam_Volume, kAudioUnitScope_Output, 2, 2, 1, 0), noErr);
    EXPECT_EQ(rendered(6), (std::vector<float>{1, 1, 1, 0.5F, 0, 0}));
}

TEST_F(RampedMixer, AnImmediateEventJumpsAtItsFrame) {
    AudioUnitParameterEvent event{};
    event.scope = kAudioUnitScope_Input;
    event.parameter = kMultiChannelMixerParam_Volume;
    event.eventType = kParameterEvent_Immediate;
    event.eventValues.immediate = {3, 0.5F};
    ASSERT_EQ(AudioUnitScheduleParameters(unit, &event, 1), noErr);
    EXPECT_EQ(rendered(5), (std::vector<float>{1, 1, 1, 0.5F, 0.5F}));
    EXPECT_EQ(rendered(2), (std::vector<float>{0.5F, 0.5F}));
}

TEST_F(RampedMixer, WhatIsSetDuringARampStaysAndEndsIt) {
    ASSERT_EQ(ramp(kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0, 64, 0, 1), noErr);
    ASSERT_EQ(rendered(32).back(), 31.0F / 64);
    // From inside the slice, after its gains were decided upon; also what it is anyway.
    for (const Float32 wanted : {0.25F, 0.25F, 1.0F}) {
        ASSERT_EQ(ramp(kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0, 64, 0, 1), noErr);
        const auto body = ones.body;
        ones.body = [&](auto& flags, auto& time, UInt32 bus, UInt32 frames, AudioBufferList* list) {
            EXPECT_EQ(setParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0,
                                   wanted),
                      noErr);
            return body(flags, time, bus, frames, list);
        };
        static_cast<void>(rendered(32));
        EXPECT_EQ(parameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, 0),
                  wanted);
        ones.body = body;
        EXPECT_EQ(rendered(4), std::vector<float>(4, wanted));
    }
}

TEST_F(RampedMixer, WhatIsSetBehindARampThatWasScheduledTakesItsPlace) {
    ASSERT_EQ(ramp(kMultiChannelMixerParam_Volume, kAudioUnitScope_Output, 0, 64, 0, 1), noErr);
    ASSERT_EQ(setParameter(unit, kMultiChannelMixerParam_Volume, kAudioUnitScope_Output, 0, 0.5F),
              noErr);
    EXPECT_EQ(rendered(4), std::vector<float>(4, 0.5F));
}

TEST_F(RampedMixer, WhatCannotRampIsRefused) {
    EXPECT_EQ(ramp(kMultiChannelMixerParam_Enable, kAudioUnitScope_Input, 0, 4, 0, 1),
              kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(ramp(42, kAudioUnitScope_Input, 0, 4, 0, 1), kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(AudioUnitScheduleParameters(unit, nullptr, 1), kAudio_ParamError);
}

TEST(OtherParameters, UnitsWithoutAnyRefuseThem) {
    const OwnedUnit unit(converter());
    Float32 value = 0;
    EXPECT_EQ(AudioUnitGetParameter(unit, 0, kAudioUnitScope_Global, 0, &value),
              kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(setParameter(unit, 0, kAudioUnitScope_Global, 0, 0), kAudioUnitErr_InvalidParameter);
}

}  // namespace
}  // namespace platform
