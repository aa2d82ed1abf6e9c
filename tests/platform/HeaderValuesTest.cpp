#include <AudioToolbox/AudioServices.h>
#include <AudioToolbox/AudioToolbox.h>
#include <CoreServices/CoreServices.h>
#include <MacTypes.h>
#include <TargetConditionals.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

// Numbers and layouts that hosts bring along compiled in, beyond those of units and graphs.

static_assert(TARGET_OS_IPHONE == 1 && TARGET_OS_MAC == 1 && TARGET_OS_OSX == 0 &&
              TARGET_OS_SIMULATOR == 0 && TARGET_RT_BIG_ENDIAN == 0 && TARGET_RT_64_BIT == 1);
static_assert(std::is_same_v<OSErr, std::int16_t> && sizeof(Fixed) == 4);

static_assert(sizeof(AudioValueRange) == 16 && offsetof(AudioValueRange, mMaximum) == 8);
static_assert(sizeof(AudioStreamPacketDescription) == 16 &&
              offsetof(AudioStreamPacketDescription, mVariableFramesInPacket) == 8 &&
              offsetof(AudioStreamPacketDescription, mDataByteSize) == 12);
static_assert(sizeof(AudioClassDescription) == 12 && kAudioStreamAnyRate == 0);
static_assert(kAudioFormatMPEG4AAC == 0x61616320 && kAudioFormatULaw == 0x756C6177 &&
              kAudioFormatALaw == 0x616C6177 && kAudioFormatAppleLossless == 0x616C6163 &&
              kAudioFormatAppleIMA4 == 0x696D6134 && kAudioFormatMPEGLayer3 == 0x2E6D7033);

static_assert(kAudioChannelFlags_AllOff == 0 && kAudioChannelLabel_Unknown == 0xFFFFFFFF &&
              kAudioChannelLabel_LFEScreen == 4 && kAudioChannelLabel_TopBackRight == 18 &&
              kAudioChannelLabel_RearSurroundLeft == 33 && kAudioChannelLabel_Mono == 42 &&
              kAudioChannelLabel_UseCoordinates == 100 && kAudioChannelLabel_Discrete == 400 &&
              kAudioChannelLabel_Discrete_15 == 65551 &&
              kAudioChannelLabel_Discrete_65535 == 131071);
static_assert(kAudioChannelBit_Left == 1 && kAudioChannelBit_TopBackRight == 0x20000);
static_assert(kAudioChannelLayoutTag_Mono == 0x640001 &&
              kAudioChannelLayoutTag_Quadraphonic == 0x6C0004 &&
              kAudioChannelLayoutTag_MPEG_5_1_A == 0x790006 &&
              kAudioChannelLayoutTag_MPEG_7_1_C == 0x800008 &&
              kAudioChannelLayoutTag_AudioUnit_5_1 == kAudioChannelLayoutTag_MPEG_5_1_A &&
              kAudioChannelLayoutTag_DiscreteInOrder == 0x930000 &&
              kAudioChannelLayoutTag_WAVE_7_1 == 0xBD0008 &&
              kAudioChannelLayoutTag_Unknown == 0xFFFF0000 &&
              AudioChannelLayoutTag_GetNumberOfChannels(kAudioChannelLayoutTag_TMH_10_2_full) ==
                  21);

static_assert(sizeof(AudioUnitParameterInfo) == 104 &&
              offsetof(AudioUnitParameterInfo, unitName) == 56 &&
              offsetof(AudioUnitParameterInfo, cfNameString) == 72 &&
              offsetof(AudioUnitParameterInfo, unit) == 80 &&
              offsetof(AudioUnitParameterInfo, flags) == 96);
static_assert(kAudioUnitParameterFlag_MeterReadOnly == 0x8000 &&
              kAudioUnitParameterFlag_CanRamp == 0x2000000 &&
              kAudioUnitParameterFlag_IsReadable == 0x40000000 &&
              kAudioUnitParameterFlag_IsWritable == 0x80000000 &&
              kAudioUnitParameterUnit_Decibels == 13 && kAudioUnitParameterUnit_CustomUnit == 26);
static_assert(sizeof(AudioUnitParameterEvent) == 32 &&
              offsetof(AudioUnitParameterEvent, eventValues) == 16 &&
              kParameterEvent_Immediate == 1 && kParameterEvent_Ramped == 2);
static_assert(kAudioSessionProperty_ServerDied == 0x64696564 &&
              kAudioServicesSystemSoundUnspecifiedError == -1500 &&
              kSystemSoundID_Vibrate == 0xFFF);

TEST(HeaderValues, BytesAreSwappedToBigEndianOnly) {
    EXPECT_EQ(CFSwapInt16HostToBig(0x0102), 0x0201);
    EXPECT_EQ(CFSwapInt32HostToBig(0x01020304), 0x04030201U);
    EXPECT_EQ(CFSwapInt64HostToBig(0x0102030405060708), 0x0807060504030201U);
    EXPECT_EQ(CFSwapInt32BigToHost(CFSwapInt32HostToBig(77)), 77U);
    EXPECT_EQ(CFSwapInt32HostToLittle(0x01020304), 0x01020304U);
    EXPECT_EQ(CFByteOrderGetCurrent(), CFByteOrderLittleEndian);
}

TEST(HeaderValues, PlatformIsNewerThanTheOldestThatHostsAskFor) {
    EXPECT_GE(kCFCoreFoundationVersionNumber, kCFCoreFoundationVersionNumber_iOS_7_0);
}

TEST(HeaderValues, SystemSoundsCannotBeMade) {
    SystemSoundID sound = 5;
    EXPECT_EQ(AudioServicesCreateSystemSoundID(nullptr, &sound),
              kAudioServicesSystemSoundUnspecifiedError);
    EXPECT_EQ(sound, 0U);
    AudioServicesPlaySystemSound(kSystemSoundID_Vibrate);
    EXPECT_EQ(AudioServicesDisposeSystemSoundID(5), kAudioServicesSystemSoundUnspecifiedError);
}
