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

TEST(OtherParameters, UnitsWithoutAnyRefuseThem) {
    const OwnedUnit unit(converter());
    Float32 value = 0;
    EXPECT_EQ(AudioUnitGetParameter(unit, 0, kAudioUnitScope_Global, 0, &value),
              kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(setParameter(unit, 0, kAudioUnitScope_Global, 0, 0), kAudioUnitErr_InvalidParameter);
}

}  // namespace
}  // namespace platform
