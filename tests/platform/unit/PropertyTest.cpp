#include <limits>

#include "PlatformFixture.h"

namespace platform {
namespace {

constexpr AudioUnitPropertyID unknownProperty = 9999;

TEST(Properties, AnUnknownIdIsAnInvalidProperty) {
    const OwnedUnit unit(mixer());
    UInt32 value = 0;
    UInt32 size = sizeof value;
    EXPECT_EQ(AudioUnitGetPropertyInfo(unit, unknownProperty, 0, 0, nullptr, nullptr),
              kAudioUnitErr_InvalidProperty);
    EXPECT_EQ(AudioUnitGetProperty(unit, unknownProperty, 0, 0, &value, &size),
              kAudioUnitErr_InvalidProperty);
    EXPECT_EQ(set(unit, unknownProperty, 0, 0, value), kAudioUnitErr_InvalidProperty);
    EXPECT_EQ(AudioUnitSetProperty(unit, unknownProperty, 0, 0, nullptr, 0),
              kAudioUnitErr_InvalidProperty);
}

TEST(Properties, ABadScopeIsAnInvalidScope) {
    const OwnedUnit unit(mixer());
    UInt32 value = 0;
    UInt32 size = sizeof value;
    AudioStreamBasicDescription format{};
    UInt32 formatSize = sizeof format;
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Group, 0,
                                   &format, &formatSize),
              kAudioUnitErr_InvalidScope);
    EXPECT_EQ(setFormat(unit, 77, 0, format), kAudioUnitErr_InvalidScope);
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice,
                                   kAudioUnitScope_Input, 0, &value, &size),
              kAudioUnitErr_InvalidScope);
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_LastRenderError, kAudioUnitScope_Output,
                                   0, &value, &size),
              kAudioUnitErr_InvalidScope);
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Part, 0,
                                   &value, &size),
              kAudioUnitErr_InvalidScope);
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_ShouldAllocateBuffer,
                                   kAudioUnitScope_Global, 0, &value, &size),
              kAudioUnitErr_InvalidScope);
}

TEST(Properties, ABadElementIsAnInvalidElement) {
    const OwnedUnit unit(mixer());
    AudioStreamBasicDescription format{};
    UInt32 size = sizeof format;
    UInt32 value = 0;
    UInt32 valueSize = sizeof value;
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 8,
                                   &format, &size),
              kAudioUnitErr_InvalidElement);
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 1,
                                   &format, &size),
              kAudioUnitErr_InvalidElement);
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice,
                                   kAudioUnitScope_Global, 1, &value, &valueSize),
              kAudioUnitErr_InvalidElement);
    const AURenderCallbackStruct callback{Callback::proc, nullptr};
    EXPECT_EQ(set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input,
                  std::numeric_limits<UInt32>::max(), callback),
              kAudioUnitErr_InvalidElement);
}

TEST(Properties, AShortValueIsInvalid) {
    const OwnedUnit unit(mixer());
    const AURenderCallbackStruct callback{Callback::proc, nullptr};
    const AudioUnitConnection connection{nullptr, 0, 0};
    const UInt32 number = 512;
    EXPECT_EQ(AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, 1, 0, &callback, 15),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(AudioUnitSetProperty(unit, kAudioUnitProperty_MakeConnection, 1, 0, &connection, 15),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(
        AudioUnitSetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, &number, 3),
        kAudioUnitErr_InvalidPropertyValue);
}

TEST(Properties, DataAndSizeMustBothBeThereOrBothBeMissing) {
    const OwnedUnit unit(mixer());
    const UInt32 number = 512;
    UInt32 value = 0;
    UInt32 none = 0;
    EXPECT_EQ(
        AudioUnitSetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, nullptr, 4),
        kAudio_ParamError);
    EXPECT_EQ(
        AudioUnitSetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, &number, 0),
        kAudio_ParamError);
    EXPECT_EQ(
        AudioUnitGetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, &value, nullptr),
        kAudio_ParamError);
    EXPECT_EQ(
        AudioUnitGetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, &value, &none),
        kAudio_ParamError);
}

TEST(Properties, NullDataAsksForTheSize) {
    const OwnedUnit unit(mixer());
    UInt32 size = 0;
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                   nullptr, &size),
              noErr);
    EXPECT_EQ(size, 40U);
}

TEST(Properties, ASmallBufferGetsWhatFits) {
    const OwnedUnit unit(mixer());
    struct {
        Float64 rate;
        UInt32 beyond;
    } part{0, 0xDEADBEEF};
    UInt32 size = sizeof part.rate;
    EXPECT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                   &part, &size),
              noErr);
    EXPECT_EQ(size, sizeof part.rate);
    EXPECT_EQ(part.rate, 44100);
    EXPECT_EQ(part.beyond, 0xDEADBEEF);
}

TEST(Properties, ALargerBufferIsToldTheTrueSize) {
    const OwnedUnit unit(mixer());
    UInt32 values[4] = {};
    UInt32 size = sizeof values;
    EXPECT_EQ(
        AudioUnitGetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, values, &size),
        noErr);
    EXPECT_EQ(size, 4U);
}

TEST(Properties, InfoTellsSizeAndWhetherItIsWritable) {
    const OwnedUnit unit(remoteIO());
    UInt32 size = 0;
    Boolean writable = 9;
    EXPECT_EQ(AudioUnitGetPropertyInfo(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                       0, &size, &writable),
              noErr);
    EXPECT_EQ(size, 40U);
    EXPECT_EQ(writable, 1);
    EXPECT_EQ(AudioUnitGetPropertyInfo(unit, kAudioUnitProperty_StreamFormat,
                                       kAudioUnitScope_Output, 0, nullptr, &writable),
              noErr);
    EXPECT_EQ(writable, 0);
    EXPECT_EQ(AudioUnitGetPropertyInfo(unit, kAudioUnitProperty_SetRenderCallback,
                                       kAudioUnitScope_Input, 0, &size, nullptr),
              noErr);
    EXPECT_EQ(size, 16U);
}

TEST(Properties, ReadOnlyOnesAreNotWritable) {
    const OwnedUnit unit(remoteIO());
    EXPECT_EQ(set(unit, kAudioUnitProperty_LastRenderError, 0, 0, OSStatus{0}),
              kAudioUnitErr_PropertyNotWritable);
    EXPECT_EQ(set(unit, kAudioOutputUnitProperty_IsRunning, 0, 0, UInt32{1}),
              kAudioUnitErr_PropertyNotWritable);
    EXPECT_EQ(set(unit, kAudioUnitProperty_Latency, 0, 0, Float64{1}),
              kAudioUnitErr_PropertyNotWritable);
    EXPECT_EQ(set(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, UInt32{4}),
              kAudioUnitErr_PropertyNotWritable);
}

TEST(Properties, WhatCannotBeTakenAwayIsRefused) {
    const OwnedUnit unit(mixer());
    EXPECT_EQ(
        AudioUnitSetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, nullptr, 0),
        kAudioUnitErr_InvalidPropertyValue);
}

TEST(Properties, MaximumFramesIgnoresScopeAndElementWhenSet) {
    const OwnedUnit unit(mixer());
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0), 1024U);
    EXPECT_EQ(
        set(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Input, 0, UInt32{4096}),
        noErr);
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0), 4096U);
    EXPECT_EQ(set(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 1,
                  UInt32{2048}),
              noErr);
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0), 2048U);
    EXPECT_EQ(set(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, UInt32{0}),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(set(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, UInt32{0xFFFFFFFF}),
              kAudioUnitErr_InvalidPropertyValue);
}

TEST(Properties, SomeCannotChangeWhileInitialised) {
    const OwnedUnit unit(mixer());
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    EXPECT_EQ(set(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, UInt32{512}),
              kAudioUnitErr_Initialized);
    EXPECT_EQ(
        set(unit, kAudioUnitProperty_ShouldAllocateBuffer, kAudioUnitScope_Input, 0, UInt32{0}),
        kAudioUnitErr_Initialized);
    const OwnedUnit io(remoteIO());
    ASSERT_EQ(AudioUnitInitialize(io), noErr);
    EXPECT_EQ(set(io, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, UInt32{1}),
              kAudioUnitErr_Initialized);
}

TEST(Properties, TheMixerAloneTakesMoreBuses) {
    const OwnedUnit unit(mixer());
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0), 8U);
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Output, 0), 1U);
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Global, 0), 1U);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    EXPECT_EQ(set(unit, kAudioUnitProperty_BusCount, kAudioUnitScope_Input, 0, UInt32{20}), noErr);
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0), 20U);
    Callback callback;
    EXPECT_EQ(setCallback(unit, 19, callback), noErr);
    EXPECT_EQ(set(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, UInt32{0}),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(set(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, UInt32{1000}),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(set(unit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Output, 0, UInt32{2}),
              kAudioUnitErr_PropertyNotWritable);
}

TEST(Properties, InitialiseAndUninitialiseMayBeRepeated) {
    for (const auto& kind : {remoteIO(), genericOutput(), mixer(), converter()}) {
        const OwnedUnit unit(kind);
        EXPECT_EQ(AudioUnitUninitialize(unit), noErr);
        EXPECT_EQ(AudioUnitInitialize(unit), noErr);
        EXPECT_EQ(AudioUnitInitialize(unit), noErr);
        EXPECT_EQ(AudioUnitUninitialize(unit), noErr);
        EXPECT_EQ(AudioUnitUninitialize(unit), noErr);
        EXPECT_EQ(AudioUnitReset(unit, kAudioUnitScope_Global, 0), noErr);
    }
}

TEST(Properties, QualitySettingsOfTheConverterAreRemembered) {
    const OwnedUnit unit(converter());
    EXPECT_EQ(set(unit, kAudioUnitProperty_RenderQuality, 0, 0, UInt32{64}), noErr);
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_RenderQuality, 0, 0), 64U);
    EXPECT_EQ(set(unit, kAudioUnitProperty_RenderQuality, 0, 0, UInt32{128}),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(set(unit, kAudioUnitProperty_SampleRateConverterComplexity, 0, 0, UInt32{0x6E6F726D}),
              noErr);
    EXPECT_EQ(get<UInt32>(unit, kAudioUnitProperty_SampleRateConverterComplexity, 0, 0),
              0x6E6F726DU);
}

struct Heard {
    AudioUnit unit;
    AudioUnitPropertyID id;
    AudioUnitScope scope;
    AudioUnitElement element;
    bool operator==(const Heard&) const = default;
};

void listen(void* refCon, AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope,
            AudioUnitElement element) {
    static_cast<std::vector<Heard>*>(refCon)->push_back({unit, id, scope, element});
}

TEST(PropertyListeners, HearEveryScopeAndElementOfTheirIdAtOnce) {
    const OwnedUnit unit(mixer());
    std::vector<Heard> heard;
    ASSERT_EQ(
        AudioUnitAddPropertyListener(unit, kAudioUnitProperty_SetRenderCallback, listen, &heard),
        noErr);
    Callback callback;
    ASSERT_EQ(setCallback(unit, 3, callback), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback, kAudioUnitScope_Global), noErr);
    ASSERT_EQ(set(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, UInt32{512}), noErr);
    const std::vector<Heard> expected{
        {unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 3},
        {unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Global, 0}};
    EXPECT_EQ(heard, expected);
}

TEST(PropertyListeners, HearNothingOfARefusedChange) {
    const OwnedUnit unit(mixer());
    std::vector<Heard> heard;
    ASSERT_EQ(
        AudioUnitAddPropertyListener(unit, kAudioUnitProperty_SetRenderCallback, listen, &heard),
        noErr);
    Callback callback;
    EXPECT_NE(setCallback(unit, 99, callback), noErr);
    EXPECT_TRUE(heard.empty());
}

TEST(PropertyListeners, AreRemovedByIdProcedureAndReference) {
    const OwnedUnit unit(mixer());
    std::vector<Heard> first;
    std::vector<Heard> second;
    const auto id = kAudioUnitProperty_MaximumFramesPerSlice;
    ASSERT_EQ(AudioUnitAddPropertyListener(unit, id, listen, &first), noErr);
    ASSERT_EQ(AudioUnitAddPropertyListener(unit, id, listen, &second), noErr);
    EXPECT_EQ(AudioUnitRemovePropertyListenerWithUserData(unit, id, listen, &first), noErr);
    ASSERT_EQ(set(unit, id, 0, 0, UInt32{512}), noErr);
    EXPECT_TRUE(first.empty());
    EXPECT_EQ(second.size(), 1U);
    EXPECT_EQ(AudioUnitAddPropertyListener(unit, id, nullptr, &first), kAudio_ParamError);
    EXPECT_EQ(AudioUnitRemovePropertyListenerWithUserData(unit, id, nullptr, &first),
              kAudio_ParamError);
}

TEST(PropertyListeners, MayCallTheUnit) {
    const OwnedUnit unit(mixer());
    const auto reenter = [](void* refCon, AudioUnit it, AudioUnitPropertyID id, AudioUnitScope,
                            AudioUnitElement) {
        *static_cast<UInt32*>(refCon) = get<UInt32>(it, id, 0, 0);
    };
    UInt32 seen = 0;
    ASSERT_EQ(AudioUnitAddPropertyListener(unit, kAudioUnitProperty_MaximumFramesPerSlice, reenter,
                                           &seen),
              noErr);
    ASSERT_EQ(set(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, UInt32{777}), noErr);
    EXPECT_EQ(seen, 777U);
}

}  // namespace
}  // namespace platform
