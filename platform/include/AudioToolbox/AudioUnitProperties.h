#ifndef TQPLATFORM_AUDIOUNITPROPERTIES_H
#define TQPLATFORM_AUDIOUNITPROPERTIES_H

/* Ids and values of unit properties. */

#include <AudioToolbox/AUComponent.h>

#ifdef __cplusplus
extern "C" {
#endif

AU_ENUM(AudioUnitPropertyID){
    kAudioUnitProperty_ClassInfo = 0,
    kAudioUnitProperty_MakeConnection = 1, /* AudioUnitConnection, set only */
    kAudioUnitProperty_SampleRate = 2,     /* Float64, Hz */
    kAudioUnitProperty_ParameterList = 3,  /* AudioUnitParameterID[] */
    kAudioUnitProperty_ParameterInfo = 4,  /* AudioUnitParameterInfo, the element is the id */
    kAudioUnitProperty_FastDispatch = 5,
    kAudioUnitProperty_CPULoad = 6,
    kAudioUnitProperty_StreamFormat = 8,  /* AudioStreamBasicDescription */
    kAudioUnitProperty_ElementCount = 11, /* UInt32 */
    kAudioUnitProperty_BusCount = kAudioUnitProperty_ElementCount,
    kAudioUnitProperty_Latency = 12,               /* Float64, seconds */
    kAudioUnitProperty_SupportedNumChannels = 13,  /* AUChannelInfo[] */
    kAudioUnitProperty_MaximumFramesPerSlice = 14, /* UInt32 */
    kAudioUnitProperty_AudioChannelLayout = 19,
    kAudioUnitProperty_TailTime = 20, /* Float64, seconds */
    kAudioUnitProperty_BypassEffect = 21,
    kAudioUnitProperty_LastRenderError = 22,   /* OSStatus */
    kAudioUnitProperty_SetRenderCallback = 23, /* AURenderCallbackStruct, set only */
    kAudioUnitProperty_RenderQuality = 26,
    kAudioUnitProperty_InPlaceProcessing = 29,
    kAudioUnitProperty_ElementName = 30,
    kAudioUnitProperty_SupportedChannelLayoutTags = 32,
    kAudioUnitProperty_PresentPreset = 36,
    kAudioUnitProperty_OfflineRender = 37,
    kAudioUnitProperty_PresentationLatency = 40,
    kAudioUnitProperty_ShouldAllocateBuffer = 51, /* UInt32, 0 or 1 */
    kAudioUnitProperty_NickName = 54,
    kAudioUnitProperty_LastRenderSampleTime = 61, /* Float64, frames */

    kAudioOutputUnitProperty_CurrentDevice = 2000,
    kAudioOutputUnitProperty_IsRunning = 2001, /* UInt32, read only */
    kAudioOutputUnitProperty_ChannelMap = 2002,
    kAudioOutputUnitProperty_EnableIO = 2003, /* UInt32, 0 or 1 */
    kAudioOutputUnitProperty_StartTime = 2004,
    kAudioOutputUnitProperty_SetInputCallback = 2005,      /* AURenderCallbackStruct */
    kAudioOutputUnitProperty_HasIO = 2006,                 /* UInt32, read only */
    kAudioOutputUnitProperty_StartTimestampsAtZero = 2007, /* UInt32 */

    kAUVoiceIOProperty_BypassVoiceProcessing = 2100,
    kAUVoiceIOProperty_VoiceProcessingEnableAGC = 2101,
    kAUVoiceIOProperty_VoiceProcessingQuality = 2103,
    kAUVoiceIOProperty_MuteOutput = 2104,

    kAudioUnitProperty_MatrixLevels = 3006,
    kAudioUnitProperty_MeteringMode = 3007,
    kAudioUnitProperty_SampleRateConverterComplexity = 3014,
};

/* Values of kAudioUnitProperty_RenderQuality: 0 to 127. */
AU_ENUM(UInt32){
    kRenderQuality_Min = 0,   kRenderQuality_Low = 32,  kRenderQuality_Medium = 64,
    kRenderQuality_High = 96, kRenderQuality_Max = 127,
};

/* Parameters of the multichannel mixer. Volume is linear, 0 to 1, per input bus and on output
 * element 0; Enable (0 or 1) and Pan (-1 left to 1 right) are per input bus. */
AU_ENUM(AudioUnitParameterID){
    kMultiChannelMixerParam_Volume = 0,
    kMultiChannelMixerParam_Enable = 1,
    kMultiChannelMixerParam_Pan = 2,
    kMultiChannelMixerParam_PreAveragePower = 1000,
    kMultiChannelMixerParam_PrePeakHoldLevel = 2000,
    kMultiChannelMixerParam_PostAveragePower = 3000,
    kMultiChannelMixerParam_PostPeakHoldLevel = 4000,

    kHALOutputParam_Volume = 14,
};

typedef UInt32 AudioUnitParameterUnit;

AU_ENUM(AudioUnitParameterUnit){
    kAudioUnitParameterUnit_Generic = 0,
    kAudioUnitParameterUnit_Indexed = 1,
    kAudioUnitParameterUnit_Boolean = 2,
    kAudioUnitParameterUnit_Percent = 3,
    kAudioUnitParameterUnit_Seconds = 4,
    kAudioUnitParameterUnit_SampleFrames = 5,
    kAudioUnitParameterUnit_Phase = 6,
    kAudioUnitParameterUnit_Rate = 7,
    kAudioUnitParameterUnit_Hertz = 8,
    kAudioUnitParameterUnit_Cents = 9,
    kAudioUnitParameterUnit_RelativeSemiTones = 10,
    kAudioUnitParameterUnit_MIDINoteNumber = 11,
    kAudioUnitParameterUnit_MIDIController = 12,
    kAudioUnitParameterUnit_Decibels = 13,
    kAudioUnitParameterUnit_LinearGain = 14,
    kAudioUnitParameterUnit_Degrees = 15,
    kAudioUnitParameterUnit_EqualPowerCrossfade = 16,
    kAudioUnitParameterUnit_MixerFaderCurve1 = 17,
    kAudioUnitParameterUnit_Pan = 18,
    kAudioUnitParameterUnit_Meters = 19,
    kAudioUnitParameterUnit_AbsoluteCents = 20,
    kAudioUnitParameterUnit_Octaves = 21,
    kAudioUnitParameterUnit_BPM = 22,
    kAudioUnitParameterUnit_Beats = 23,
    kAudioUnitParameterUnit_Milliseconds = 24,
    kAudioUnitParameterUnit_Ratio = 25,
    kAudioUnitParameterUnit_CustomUnit = 26,
};

typedef UInt32 AudioUnitParameterOptions;

AU_ENUM(AudioUnitParameterOptions){
    kAudioUnitParameterFlag_CFNameRelease = 1 << 4,
    kAudioUnitParameterFlag_OmitFromPresets = 1 << 13,
    kAudioUnitParameterFlag_PlotHistory = 1 << 14,
    kAudioUnitParameterFlag_MeterReadOnly = 1 << 15,
    kAudioUnitParameterFlag_DisplayMask = (7 << 16) | (1 << 22),
    kAudioUnitParameterFlag_DisplaySquareRoot = 1 << 16,
    kAudioUnitParameterFlag_DisplaySquared = 2 << 16,
    kAudioUnitParameterFlag_DisplayCubed = 3 << 16,
    kAudioUnitParameterFlag_DisplayCubeRoot = 4 << 16,
    kAudioUnitParameterFlag_DisplayExponential = 5 << 16,
    kAudioUnitParameterFlag_HasClump = 1 << 20,
    kAudioUnitParameterFlag_ValuesHaveStrings = 1 << 21,
    kAudioUnitParameterFlag_DisplayLogarithmic = 1 << 22,
    kAudioUnitParameterFlag_IsHighResolution = 1 << 23,
    kAudioUnitParameterFlag_NonRealTime = 1 << 24,
    kAudioUnitParameterFlag_CanRamp = 1 << 25,
    kAudioUnitParameterFlag_ExpertMode = 1 << 26,
    kAudioUnitParameterFlag_HasCFNameString = 1 << 27,
    kAudioUnitParameterFlag_IsGlobalMeta = 1 << 28,
    kAudioUnitParameterFlag_IsElementMeta = 1 << 29,
    kAudioUnitParameterFlag_IsReadable = 1 << 30,
};

/* No int in C holds this one. */
#define kAudioUnitParameterFlag_IsWritable ((AudioUnitParameterOptions)0x80000000U)

/** What one parameter is: kAudioUnitProperty_ParameterInfo, its id in the place of the element. */
typedef struct AudioUnitParameterInfo {
    char name[52]; /**< terminated UTF-8 */
    CFStringRef unitName;
    UInt32 clumpID;
    CFStringRef cfNameString; /**< null without kAudioUnitParameterFlag_HasCFNameString */
    AudioUnitParameterUnit unit;
    AudioUnitParameterValue minValue;
    AudioUnitParameterValue maxValue;
    AudioUnitParameterValue defaultValue;
    AudioUnitParameterOptions flags;
} AudioUnitParameterInfo;

typedef struct AURenderCallbackStruct {
    AURenderCallback inputProc; /**< null takes the callback away */
    void* inputProcRefCon;
} AURenderCallbackStruct;

/** One pair of channel counts that a unit supports; -1 on both sides stands for any. */
typedef struct AUChannelInfo {
    SInt16 inChannels;
    SInt16 outChannels;
} AUChannelInfo;

typedef struct AudioUnitConnection {
    AudioUnit sourceAudioUnit; /**< null disconnects */
    UInt32 sourceOutputNumber;
    UInt32 destInputNumber;
} AudioUnitConnection;

#ifdef __cplusplus
}
#endif

#endif
