#include <AudioToolbox/AudioToolbox.h>
#include <AudioUnit/AudioUnit.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

// Programs were written against these sizes, offsets and numbers; most of it is checked when this
// file is compiled.

static_assert(std::is_same_v<OSStatus, std::int32_t> && std::is_same_v<UInt32, std::uint32_t>);
static_assert(std::is_same_v<Boolean, unsigned char> && std::is_same_v<AUNode, std::int32_t>);
static_assert(std::is_same_v<AudioUnit, AudioComponentInstance>);
static_assert(std::is_same_v<AudioUnitParameterValue, float> && sizeof(AudioUnitSampleType) == 4);

static_assert(sizeof(AudioStreamBasicDescription) == 40);
static_assert(offsetof(AudioStreamBasicDescription, mSampleRate) == 0);
static_assert(offsetof(AudioStreamBasicDescription, mFormatID) == 8);
static_assert(offsetof(AudioStreamBasicDescription, mFormatFlags) == 12);
static_assert(offsetof(AudioStreamBasicDescription, mBytesPerPacket) == 16);
static_assert(offsetof(AudioStreamBasicDescription, mFramesPerPacket) == 20);
static_assert(offsetof(AudioStreamBasicDescription, mBytesPerFrame) == 24);
static_assert(offsetof(AudioStreamBasicDescription, mChannelsPerFrame) == 28);
static_assert(offsetof(AudioStreamBasicDescription, mBitsPerChannel) == 32);
static_assert(offsetof(AudioStreamBasicDescription, mReserved) == 36);

static_assert(sizeof(AudioBuffer) == 16 && offsetof(AudioBuffer, mDataByteSize) == 4 &&
              offsetof(AudioBuffer, mData) == 8);
static_assert(sizeof(AudioBufferList) == 24 && offsetof(AudioBufferList, mBuffers) == 8);
static_assert(sizeof(SMPTETime) == 24 && offsetof(SMPTETime, mSubframeDivisor) == 2 &&
              offsetof(SMPTETime, mCounter) == 4 && offsetof(SMPTETime, mType) == 8 &&
              offsetof(SMPTETime, mFlags) == 12 && offsetof(SMPTETime, mHours) == 16);
static_assert(sizeof(AudioTimeStamp) == 64 && offsetof(AudioTimeStamp, mHostTime) == 8 &&
              offsetof(AudioTimeStamp, mRateScalar) == 16 &&
              offsetof(AudioTimeStamp, mWordClockTime) == 24 &&
              offsetof(AudioTimeStamp, mSMPTETime) == 32 &&
              offsetof(AudioTimeStamp, mFlags) == 56 && offsetof(AudioTimeStamp, mReserved) == 60);
static_assert(sizeof(AudioComponentDescription) == 20);
static_assert(sizeof(AURenderCallbackStruct) == 16 &&
              offsetof(AURenderCallbackStruct, inputProcRefCon) == 8);
static_assert(sizeof(AudioUnitConnection) == 16 &&
              offsetof(AudioUnitConnection, sourceOutputNumber) == 8 &&
              offsetof(AudioUnitConnection, destInputNumber) == 12);
static_assert(sizeof(AudioUnitNodeConnection) == 16 && sizeof(AUNodeConnection) == 16);
static_assert(sizeof(AUNodeRenderCallback) == 24 &&
              offsetof(AUNodeRenderCallback, destInputNumber) == 4 &&
              offsetof(AUNodeRenderCallback, cback) == 8);
static_assert(sizeof(AUNodeInteraction) == 32 && offsetof(AUNodeInteraction, nodeInteraction) == 8);
static_assert(sizeof(AudioUnitParameter) == 24 && sizeof(AudioUnitProperty) == 24);
static_assert(sizeof(AudioChannelDescription) == 20 && sizeof(AudioChannelLayout) == 32);

static_assert(kAudioUnitType_Output == 0x61756F75 && kAudioUnitType_Mixer == 0x61756D78 &&
              kAudioUnitType_FormatConverter == 0x61756663 && kAudioUnitType_Effect == 0x61756678 &&
              kAudioUnitType_Generator == 0x6175676E && kAudioUnitType_MusicDevice == 0x61756D75 &&
              kAudioUnitManufacturer_Apple == 0x6170706C);
static_assert(
    kAudioUnitSubType_RemoteIO == 0x72696F63 && kAudioUnitSubType_VoiceProcessingIO == 0x7670696F &&
    kAudioUnitSubType_GenericOutput == 0x67656E72 && kAudioUnitSubType_HALOutput == 0x6168616C &&
    kAudioUnitSubType_DefaultOutput == 0x64656620 && kAudioUnitSubType_SystemOutput == 0x73797320 &&
    kAudioUnitSubType_MultiChannelMixer == 0x6D636D78 &&
    kAudioUnitSubType_MatrixMixer == 0x6D786D78 && kAudioUnitSubType_StereoMixer == 0x736D7872 &&
    kAudioUnitSubType_3DMixer == 0x33646D78 && kAudioUnitSubType_AUConverter == 0x636F6E76 &&
    kAudioUnitSubType_Varispeed == 0x76617269);
static_assert(kAudioComponentFlag_Unsearchable == 1 && kAudioComponentFlag_SandboxSafe == 2 &&
              kAudioComponentFlag_IsV3AudioUnit == 4 &&
              kAudioComponentFlag_RequiresAsyncInstantiation == 8);

static_assert(kAudioUnitScope_Global == 0 && kAudioUnitScope_Input == 1 &&
              kAudioUnitScope_Output == 2 && kAudioUnitScope_Group == 3 &&
              kAudioUnitScope_Part == 4 && kAudioUnitScope_Note == 5 &&
              kAudioUnitScope_Layer == 6 && kAudioUnitScope_LayerItem == 7);
static_assert(kAudioUnitRenderAction_PreRender == 4 && kAudioUnitRenderAction_PostRender == 8 &&
              kAudioUnitRenderAction_OutputIsSilence == 0x10 &&
              kAudioOfflineUnitRenderAction_Preflight == 0x20 &&
              kAudioOfflineUnitRenderAction_Render == 0x40 &&
              kAudioOfflineUnitRenderAction_Complete == 0x80 &&
              kAudioUnitRenderAction_PostRenderError == 0x100 &&
              kAudioUnitRenderAction_DoNotCheckRenderArgs == 0x200);
static_assert(kAudioFormatLinearPCM == 0x6C70636D && kAudioFormatFlagIsFloat == 1 &&
              kAudioFormatFlagIsBigEndian == 2 && kAudioFormatFlagIsSignedInteger == 4 &&
              kAudioFormatFlagIsPacked == 8 && kAudioFormatFlagIsAlignedHigh == 0x10 &&
              kAudioFormatFlagIsNonInterleaved == 0x20 && kAudioFormatFlagIsNonMixable == 0x40 &&
              kAudioFormatFlagsAreAllClear == 0x80000000 &&
              kLinearPCMFormatFlagsSampleFractionShift == 7 &&
              kLinearPCMFormatFlagsSampleFractionMask == 0x3F << 7 &&
              kAudioFormatFlagsNativeEndian == 0 && kAudioFormatFlagsNativeFloatPacked == 9);
static_assert(kAudioTimeStampSampleTimeValid == 1 && kAudioTimeStampHostTimeValid == 2 &&
              kAudioTimeStampRateScalarValid == 4 && kAudioTimeStampWordClockTimeValid == 8 &&
              kAudioTimeStampSMPTETimeValid == 16 && kAudioTimeStampSampleHostTimeValid == 3);

static_assert(kAudioUnitProperty_ClassInfo == 0 && kAudioUnitProperty_MakeConnection == 1 &&
              kAudioUnitProperty_SampleRate == 2 && kAudioUnitProperty_ParameterList == 3 &&
              kAudioUnitProperty_ParameterInfo == 4 && kAudioUnitProperty_FastDispatch == 5 &&
              kAudioUnitProperty_CPULoad == 6 && kAudioUnitProperty_StreamFormat == 8 &&
              kAudioUnitProperty_ElementCount == 11 && kAudioUnitProperty_BusCount == 11 &&
              kAudioUnitProperty_Latency == 12 && kAudioUnitProperty_SupportedNumChannels == 13 &&
              kAudioUnitProperty_MaximumFramesPerSlice == 14 &&
              kAudioUnitProperty_AudioChannelLayout == 19 && kAudioUnitProperty_TailTime == 20 &&
              kAudioUnitProperty_BypassEffect == 21 && kAudioUnitProperty_LastRenderError == 22 &&
              kAudioUnitProperty_SetRenderCallback == 23 &&
              kAudioUnitProperty_RenderQuality == 26 &&
              kAudioUnitProperty_InPlaceProcessing == 29 && kAudioUnitProperty_ElementName == 30 &&
              kAudioUnitProperty_SupportedChannelLayoutTags == 32 &&
              kAudioUnitProperty_PresentPreset == 36 && kAudioUnitProperty_OfflineRender == 37 &&
              kAudioUnitProperty_PresentationLatency == 40 &&
              kAudioUnitProperty_ShouldAllocateBuffer == 51 && kAudioUnitProperty_NickName == 54 &&
              kAudioUnitProperty_LastRenderSampleTime == 61 &&
              kAudioUnitProperty_MatrixLevels == 3006 && kAudioUnitProperty_MeteringMode == 3007 &&
              kAudioUnitProperty_SampleRateConverterComplexity == 3014);
static_assert(
    kAudioOutputUnitProperty_CurrentDevice == 2000 && kAudioOutputUnitProperty_IsRunning == 2001 &&
    kAudioOutputUnitProperty_ChannelMap == 2002 && kAudioOutputUnitProperty_EnableIO == 2003 &&
    kAudioOutputUnitProperty_StartTime == 2004 &&
    kAudioOutputUnitProperty_SetInputCallback == 2005 && kAudioOutputUnitProperty_HasIO == 2006 &&
    kAudioOutputUnitProperty_StartTimestampsAtZero == 2007 &&
    kAUVoiceIOProperty_BypassVoiceProcessing == 2100 &&
    kAUVoiceIOProperty_VoiceProcessingEnableAGC == 2101 &&
    kAUVoiceIOProperty_VoiceProcessingQuality == 2103 && kAUVoiceIOProperty_MuteOutput == 2104);
static_assert(kMultiChannelMixerParam_Volume == 0 && kMultiChannelMixerParam_Enable == 1 &&
              kMultiChannelMixerParam_Pan == 2 && kMultiChannelMixerParam_PreAveragePower == 1000 &&
              kMultiChannelMixerParam_PrePeakHoldLevel == 2000 &&
              kMultiChannelMixerParam_PostAveragePower == 3000 &&
              kMultiChannelMixerParam_PostPeakHoldLevel == 4000 && kHALOutputParam_Volume == 14);

static_assert(kAudioUnitErr_InvalidProperty == -10879 && kAudioUnitErr_InvalidParameter == -10878 &&
              kAudioUnitErr_InvalidElement == -10877 && kAudioUnitErr_NoConnection == -10876 &&
              kAudioUnitErr_FailedInitialization == -10875 &&
              kAudioUnitErr_TooManyFramesToProcess == -10874 &&
              kAudioUnitErr_IllegalInstrument == -10873 &&
              kAudioUnitErr_InstrumentTypeNotFound == -10872 &&
              kAudioUnitErr_InvalidFile == -10871 && kAudioUnitErr_UnknownFileType == -10870 &&
              kAudioUnitErr_FileNotSpecified == -10869 &&
              kAudioUnitErr_FormatNotSupported == -10868 && kAudioUnitErr_Uninitialized == -10867 &&
              kAudioUnitErr_InvalidScope == -10866 && kAudioUnitErr_PropertyNotWritable == -10865 &&
              kAudioUnitErr_CannotDoInCurrentContext == -10863 &&
              kAudioUnitErr_InvalidPropertyValue == -10851 &&
              kAudioUnitErr_PropertyNotInUse == -10850 && kAudioUnitErr_Initialized == -10849 &&
              kAudioUnitErr_InvalidOfflineRender == -10848 && kAudioUnitErr_Unauthorized == -10847);
static_assert(kAudioUnitErr_RenderTimeout == -66745 && kAudioUnitErr_ExtensionNotFound == -66744 &&
              kAudioUnitErr_InvalidParameterValue == -66743 &&
              kAudioUnitErr_InvalidFilePath == -66742 && kAudioUnitErr_MissingKey == -66741 &&
              kAudioUnitErr_ComponentManagerNotSupported == -66740 &&
              kAudioUnitErr_MIDIOutputBufferFull == -66753 &&
              kAudioUnitErr_MultipleVoiceProcessors == -66635);
static_assert(kAudioComponentErr_InstanceTimedOut == -66754 &&
              kAudioComponentErr_DuplicateDescription == -66752 &&
              kAudioComponentErr_UnsupportedType == -66751 &&
              kAudioComponentErr_TooManyInstances == -66750 &&
              kAudioComponentErr_InstanceInvalidated == -66749 &&
              kAudioComponentErr_NotPermitted == -66748 &&
              kAudioComponentErr_InitializationTimedOut == -66747 &&
              kAudioComponentErr_InvalidFormat == -66746);
static_assert(kAUGraphErr_NodeNotFound == -10860 && kAUGraphErr_InvalidConnection == -10861 &&
              kAUGraphErr_OutputNodeErr == -10862 &&
              kAUGraphErr_CannotDoInCurrentContext == -10863 &&
              kAUGraphErr_InvalidAudioUnit == -10864 && kAUNodeInteraction_Connection == 1 &&
              kAUNodeInteraction_InputCallback == 2);
static_assert(noErr == 0 && kAudio_ParamError == -50 && kAudio_UnimplementedError == -4 &&
              kAudio_MemFullError == -108);

extern "C" OSStatus headersUsedFromC(void);

TEST(Headers, CompileAndLinkFromC11) {
    EXPECT_EQ(headersUsedFromC(), noErr);
}
