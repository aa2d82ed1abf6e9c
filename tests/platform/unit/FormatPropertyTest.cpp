#include <cstring>
#include <limits>

#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

AudioStreamBasicDescription format(AudioUnit unit, AudioUnitScope scope, UInt32 element) {
    return get<AudioStreamBasicDescription>(unit, kAudioUnitProperty_StreamFormat, scope, element);
}

bool same(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(StreamFormat, IsKeptAsItWasSet) {
    const OwnedUnit unit(mixer());
    const auto wanted = linear(22050, kAudioFormatFlagIsSignedInteger, 16, 1, 1);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, 5, wanted), noErr);
    EXPECT_TRUE(same(format(unit, kAudioUnitScope_Input, 5), wanted));
    EXPECT_FALSE(same(format(unit, kAudioUnitScope_Input, 4), wanted));
}

TEST(StreamFormat, MayLackTheReservedField) {
    const OwnedUnit unit(mixer());
    const auto wanted = int16Interleaved(32000, 2);
    EXPECT_EQ(AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                   &wanted, 36),
              noErr);
    EXPECT_TRUE(same(format(unit, kAudioUnitScope_Input, 0), wanted));
    EXPECT_EQ(AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                   &wanted, 35),
              kAudioUnitErr_InvalidPropertyValue);
}

TEST(StreamFormat, MalformedOnesAreNotSupported) {
    const OwnedUnit unit(mixer());
    auto wrong = int16Interleaved(44100, 2);
    wrong.mFormatID = 0x61616320;
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, wrong), kAudioUnitErr_FormatNotSupported);
    wrong = int16Interleaved(44100, 2);
    wrong.mBytesPerFrame = 3;
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, wrong), kAudioUnitErr_FormatNotSupported);
    wrong = int16Interleaved(44100, 0);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, wrong), kAudioUnitErr_FormatNotSupported);
    wrong = int16Interleaved(std::numeric_limits<Float64>::quiet_NaN(), 2);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, wrong), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, {}), kAudioUnitErr_FormatNotSupported);
}

TEST(StreamFormat, OnGlobalScopeMeansTheOutput) {
    const OwnedUnit unit(mixer());
    const auto wanted = int16Interleaved(44100, 2);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Global, 0, wanted), noErr);
    EXPECT_TRUE(same(format(unit, kAudioUnitScope_Output, 0), wanted));
    EXPECT_TRUE(same(format(unit, kAudioUnitScope_Global, 0), wanted));
}

TEST(StreamFormat, OfTheDeviceSideIsReadOnly) {
    const OwnedUnit unit(remoteIO());
    const auto other = int16Interleaved(44100, 2);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, other), kAudioUnitErr_PropertyNotWritable);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, 1, other), kAudioUnitErr_PropertyNotWritable);
    const auto device = format(unit, kAudioUnitScope_Output, 0);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, device), noErr);
    EXPECT_EQ(device.mFormatFlags, 0x29U);
    EXPECT_EQ(device.mSampleRate, deviceRate);
}

TEST(StreamFormat, OfTheProgramSideIsFloatAtTheDevicesRateAtFirst) {
    const OwnedUnit unit(remoteIO());
    EXPECT_TRUE(same(format(unit, kAudioUnitScope_Input, 0), floatPlanar(deviceRate, 2)));
    EXPECT_TRUE(same(format(unit, kAudioUnitScope_Output, 1), floatPlanar(deviceRate, 2)));
}

TEST(StreamFormat, WithoutARateCannotBeInitialised) {
    const OwnedUnit unit(mixer());
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatPlanar(0, 2)), noErr);
    EXPECT_EQ(AudioUnitInitialize(unit), kAudioUnitErr_FormatNotSupported);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatPlanar(44100, 2)), noErr);
    EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatPlanar(0, 2)),
              kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(format(unit, kAudioUnitScope_Output, 0).mSampleRate, 44100);
}

TEST(StreamFormat, RatesTooFarApartAreNotSupported) {
    const OwnedUnit unit(converter());
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(1e-3, 2)), noErr);
    EXPECT_EQ(AudioUnitInitialize(unit), kAudioUnitErr_FormatNotSupported);
}

TEST(StreamFormat, OfAMixersOutputIsIntegerOrFloat) {
    const OwnedUnit unit(mixer());
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, int16Interleaved(44100, 2)), noErr);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, int32Interleaved(48000, 2)), noErr);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatInterleaved(8000, 1)), noErr);
    EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0,
                        linear(44100, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked, 8,
                               2, 2)),
              kAudioUnitErr_FormatNotSupported);
}

TEST(StreamFormat, OfAConnectedInputIsNotWritable) {
    const OwnedUnit source(mixer());
    const OwnedUnit destination(remoteIO());
    const auto wanted = int16Interleaved(44100, 2);
    ASSERT_EQ(setFormat(source, kAudioUnitScope_Output, 0, wanted), noErr);
    const AudioUnitConnection connection{source, 0, 0};
    ASSERT_EQ(
        set(destination, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, connection),
        noErr);
    EXPECT_TRUE(same(format(destination, kAudioUnitScope_Input, 0), wanted));
    EXPECT_EQ(setFormat(destination, kAudioUnitScope_Input, 0, floatPlanar(44100, 2)),
              kAudioUnitErr_PropertyNotWritable);
    EXPECT_EQ(setFormat(destination, kAudioUnitScope_Input, 0, wanted), noErr);
    EXPECT_EQ(setFormat(destination, kAudioUnitScope_Input, 0,
                        linear(44100, kAudioFormatFlagIsSignedInteger, 16, 2, 2)),
              noErr);
}

TEST(StreamFormat, OfAConnectedInputFollowsItsSource) {
    const OwnedUnit source(mixer());
    const OwnedUnit destination(remoteIO());
    const AudioUnitConnection connection{source, 0, 0};
    ASSERT_EQ(
        set(destination, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, connection),
        noErr);
    const auto wanted = int16Interleaved(32000, 2);
    ASSERT_EQ(setFormat(source, kAudioUnitScope_Output, 0, wanted), noErr);
    EXPECT_TRUE(same(format(destination, kAudioUnitScope_Input, 0), wanted));
}

TEST(SampleRate, IsThatOfTheBusFormat) {
    const OwnedUnit unit(converter());
    EXPECT_EQ(set(unit, kAudioUnitProperty_SampleRate, kAudioUnitScope_Input, 0, Float64{22050}),
              noErr);
    EXPECT_EQ(format(unit, kAudioUnitScope_Input, 0).mSampleRate, 22050);
    EXPECT_EQ(get<Float64>(unit, kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 0), 44100);
    EXPECT_EQ(set(unit, kAudioUnitProperty_SampleRate, kAudioUnitScope_Input, 0, Float64{-1}),
              kAudioUnitErr_FormatNotSupported);
    const OwnedUnit io(remoteIO());
    EXPECT_EQ(set(io, kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 0, Float64{8000}),
              kAudioUnitErr_PropertyNotWritable);
}

TEST(Connections, BadOnesAreRefused) {
    const OwnedUnit source(mixer());
    const OwnedUnit destination(remoteIO());
    const auto connect = [&](AudioUnit from, UInt32 output, UInt32 input) {
        const AudioUnitConnection connection{from, output, input};
        return set(destination, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0,
                   connection);
    };
    int other = 0;
    EXPECT_EQ(connect(source, 1, 0), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(connect(source, 0, 1), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(connect(reinterpret_cast<AudioUnit>(&other), 0, 0),
              kAudioComponentErr_InstanceInvalidated);
    EXPECT_EQ(connect(destination, 0, 0), kAudio_ParamError);
    EXPECT_EQ(connect(nullptr, 0, 0), noErr);
}

}  // namespace
}  // namespace platform
