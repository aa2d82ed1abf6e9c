#ifndef TQPLATFORM_AUCOMPONENT_H
#define TQPLATFORM_AUCOMPONENT_H

/*
 * Audio units: their kinds, error codes and calls.
 *
 * Every call answers kAudio_ParamError for a null unit and
 * kAudioComponentErr_InstanceInvalidated for a handle that is no unit (any more).
 */

#include <AudioToolbox/AudioComponent.h>
#include <CoreAudio/CoreAudioTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef AudioComponentInstance AudioUnit;

AU_ENUM(OSType){
    kAudioUnitType_Output = 0x61756F75,          /* auou */
    kAudioUnitType_Mixer = 0x61756D78,           /* aumx */
    kAudioUnitType_FormatConverter = 0x61756663, /* aufc */
    kAudioUnitType_Effect = 0x61756678,          /* aufx */
    kAudioUnitType_Generator = 0x6175676E,       /* augn */
    kAudioUnitType_MusicDevice = 0x61756D75,     /* aumu */

    kAudioUnitManufacturer_Apple = 0x6170706C, /* appl */

    kAudioUnitSubType_RemoteIO = 0x72696F63,          /* rioc */
    kAudioUnitSubType_VoiceProcessingIO = 0x7670696F, /* vpio */
    kAudioUnitSubType_GenericOutput = 0x67656E72,     /* genr */
    kAudioUnitSubType_HALOutput = 0x6168616C,         /* ahal */
    kAudioUnitSubType_DefaultOutput = 0x64656620,     /* "def " */
    kAudioUnitSubType_SystemOutput = 0x73797320,      /* "sys " */
    kAudioUnitSubType_MultiChannelMixer = 0x6D636D78, /* mcmx */
    kAudioUnitSubType_MatrixMixer = 0x6D786D78,       /* mxmx */
    kAudioUnitSubType_StereoMixer = 0x736D7872,       /* smxr */
    kAudioUnitSubType_3DMixer = 0x33646D78,           /* 3dmx */
    kAudioUnitSubType_AUConverter = 0x636F6E76,       /* conv */
    kAudioUnitSubType_Varispeed = 0x76617269,         /* vari */
};

AU_ENUM(OSStatus){
    kAudioUnitErr_InvalidProperty = -10879,
    kAudioUnitErr_InvalidParameter = -10878,
    kAudioUnitErr_InvalidElement = -10877,
    kAudioUnitErr_NoConnection = -10876,
    kAudioUnitErr_FailedInitialization = -10875,
    kAudioUnitErr_TooManyFramesToProcess = -10874,
    kAudioUnitErr_IllegalInstrument = -10873,
    kAudioUnitErr_InstrumentTypeNotFound = -10872,
    kAudioUnitErr_InvalidFile = -10871,
    kAudioUnitErr_UnknownFileType = -10870,
    kAudioUnitErr_FileNotSpecified = -10869,
    kAudioUnitErr_FormatNotSupported = -10868,
    kAudioUnitErr_Uninitialized = -10867,
    kAudioUnitErr_InvalidScope = -10866,
    kAudioUnitErr_PropertyNotWritable = -10865,
    kAudioUnitErr_CannotDoInCurrentContext = -10863,
    kAudioUnitErr_InvalidPropertyValue = -10851,
    kAudioUnitErr_PropertyNotInUse = -10850,
    kAudioUnitErr_Initialized = -10849,
    kAudioUnitErr_InvalidOfflineRender = -10848,
    kAudioUnitErr_Unauthorized = -10847,
    kAudioUnitErr_MIDIOutputBufferFull = -66753,
    kAudioUnitErr_RenderTimeout = -66745,
    kAudioUnitErr_ExtensionNotFound = -66744,
    kAudioUnitErr_InvalidParameterValue = -66743,
    kAudioUnitErr_InvalidFilePath = -66742,
    kAudioUnitErr_MissingKey = -66741,
    kAudioUnitErr_ComponentManagerNotSupported = -66740,
    kAudioUnitErr_MultipleVoiceProcessors = -66635,
};

typedef UInt32 AudioUnitRenderActionFlags;
typedef UInt32 AudioUnitPropertyID;
typedef UInt32 AudioUnitScope;
typedef UInt32 AudioUnitElement;
typedef UInt32 AudioUnitParameterID;
typedef Float32 AudioUnitParameterValue;

AU_ENUM(AudioUnitRenderActionFlags){
    kAudioUnitRenderAction_PreRender = 0x04,
    kAudioUnitRenderAction_PostRender = 0x08,
    /* A hint; the data is zeroed, too. */
    kAudioUnitRenderAction_OutputIsSilence = 0x10,
    kAudioOfflineUnitRenderAction_Preflight = 0x20,
    kAudioOfflineUnitRenderAction_Render = 0x40,
    kAudioOfflineUnitRenderAction_Complete = 0x80,
    kAudioUnitRenderAction_PostRenderError = 0x100,
    kAudioUnitRenderAction_DoNotCheckRenderArgs = 0x200,
};

AU_ENUM(AudioUnitScope){
    kAudioUnitScope_Global = 0, kAudioUnitScope_Input = 1,     kAudioUnitScope_Output = 2,
    kAudioUnitScope_Group = 3,  kAudioUnitScope_Part = 4,      kAudioUnitScope_Note = 5,
    kAudioUnitScope_Layer = 6,  kAudioUnitScope_LayerItem = 7,
};

typedef struct AudioUnitParameter {
    AudioUnit mAudioUnit;
    AudioUnitParameterID mParameterID;
    AudioUnitScope mScope;
    AudioUnitElement mElement;
} AudioUnitParameter;

typedef struct AudioUnitProperty {
    AudioUnit mAudioUnit;
    AudioUnitPropertyID mPropertyID;
    AudioUnitScope mScope;
    AudioUnitElement mElement;
} AudioUnitProperty;

typedef UInt32 AUParameterEventType;

AU_ENUM(AUParameterEventType){
    kParameterEvent_Immediate = 1,
    kParameterEvent_Ramped = 2,
};

/** A value that a parameter has from a frame of the next slice on, or goes to frame by frame. */
typedef struct AudioUnitParameterEvent {
    AudioUnitScope scope;
    AudioUnitElement element;
    AudioUnitParameterID parameter;
    AUParameterEventType eventType; /**< which side of the union counts */
    union {
        struct {
            SInt32 startBufferOffset; /**< frames; below 0 it began in an earlier slice */
            UInt32 durationInFrames;
            AudioUnitParameterValue startValue;
            AudioUnitParameterValue endValue;
        } ramp;
        struct {
            UInt32 bufferOffset; /**< frames */
            AudioUnitParameterValue value;
        } immediate;
    } eventValues;
} AudioUnitParameterEvent;

/** [render thread] Fills an input, hears that input is there, or watches a render. */
typedef OSStatus (*AURenderCallback)(void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                                     const AudioTimeStamp* inTimeStamp, UInt32 inBusNumber,
                                     UInt32 inNumberFrames, AudioBufferList* ioData);

/** [any thread] Called on the thread that changed the property, within the call that did. */
typedef void (*AudioUnitPropertyListenerProc)(void* inRefCon, AudioUnit inUnit,
                                              AudioUnitPropertyID inID, AudioUnitScope inScope,
                                              AudioUnitElement inElement);

/** [host thread] Allocates what renders need. kAudioUnitErr_FormatNotSupported while a bus has no
 *  sample rate. Initialising twice succeeds. */
AU_EXPORT OSStatus AudioUnitInitialize(AudioUnit inUnit);
/** [any thread] Stops the unit; renders from then on answer kAudioUnitErr_Uninitialized. */
AU_EXPORT OSStatus AudioUnitUninitialize(AudioUnit inUnit);

/** [any thread] Waits for other property calls. Either out pointer may be null. */
AU_EXPORT OSStatus AudioUnitGetPropertyInfo(AudioUnit inUnit, AudioUnitPropertyID inID,
                                            AudioUnitScope inScope, AudioUnitElement inElement,
                                            UInt32* outDataSize, Boolean* outWritable);
/** [any thread] Waits for other property calls. With null data only the size is reported; a buffer
 * too small gets as much as fits. */
AU_EXPORT OSStatus AudioUnitGetProperty(AudioUnit inUnit, AudioUnitPropertyID inID,
                                        AudioUnitScope inScope, AudioUnitElement inElement,
                                        void* outData, UInt32* ioDataSize);
/** [any thread] Waits for other property calls and may allocate. Null data of size 0 takes a
 * property away that can be taken away. */
AU_EXPORT OSStatus AudioUnitSetProperty(AudioUnit inUnit, AudioUnitPropertyID inID,
                                        AudioUnitScope inScope, AudioUnitElement inElement,
                                        const void* inData, UInt32 inDataSize);
/** [any thread] Calls `inProc` after each change of the property. */
AU_EXPORT OSStatus AudioUnitAddPropertyListener(AudioUnit inUnit, AudioUnitPropertyID inID,
                                                AudioUnitPropertyListenerProc inProc,
                                                void* inProcUserData);
/** [any thread] One that is not there is no error. A call under way may still finish. */
AU_EXPORT OSStatus AudioUnitRemovePropertyListenerWithUserData(AudioUnit inUnit,
                                                               AudioUnitPropertyID inID,
                                                               AudioUnitPropertyListenerProc inProc,
                                                               void* inProcUserData);

/** [any thread] Adds a callback that is called before and after each render of the unit, from the
 * next render on. Procedure and reference constant together are its identity. */
AU_EXPORT OSStatus AudioUnitAddRenderNotify(AudioUnit inUnit, AURenderCallback inProc,
                                            void* inProcUserData);
/** [any thread] One that is not there is no error. A render under way still calls it. */
AU_EXPORT OSStatus AudioUnitRemoveRenderNotify(AudioUnit inUnit, AURenderCallback inProc,
                                               void* inProcUserData);

/** [any thread] [real-time safe] */
AU_EXPORT OSStatus AudioUnitGetParameter(AudioUnit inUnit, AudioUnitParameterID inID,
                                         AudioUnitScope inScope, AudioUnitElement inElement,
                                         AudioUnitParameterValue* outValue);
/** [any thread] [real-time safe] The offset is accepted and taken as 0: a change counts from the
 * next slice on, and a scheduled change of the same parameter ends there. */
AU_EXPORT OSStatus AudioUnitSetParameter(AudioUnit inUnit, AudioUnitParameterID inID,
                                         AudioUnitScope inScope, AudioUnitElement inElement,
                                         AudioUnitParameterValue inValue,
                                         UInt32 inBufferOffsetInFrames);

/** [any thread] [real-time safe] Changes parameters within the next slice, to the frame where
 * kAudioUnitParameterFlag_CanRamp says so: volume and pan of the mixer. One change of each at a
 * time; a ramp that reaches beyond the slice goes on in those that follow. Of other parameters
 * immediate events count from the next slice on and ramps are kAudioUnitErr_InvalidParameter. Stops
 * at the first event that is refused. */
AU_EXPORT OSStatus AudioUnitScheduleParameters(AudioUnit inUnit,
                                               const AudioUnitParameterEvent* inParameterEvent,
                                               UInt32 inNumParamEvents);

/** [any thread] [real-time safe] Renders frames of an output bus; a second thread meanwhile is
 *  answered kAudioUnitErr_CannotDoInCurrentContext. Buffers without data are lent the unit's own
 * memory, valid until the unit renders that bus again or is disposed of. */
AU_EXPORT OSStatus AudioUnitRender(AudioUnit inUnit, AudioUnitRenderActionFlags* ioActionFlags,
                                   const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber,
                                   UInt32 inNumberFrames, AudioBufferList* ioData);
/** [any thread] [real-time safe] Forgets what the unit remembers of past sound. */
AU_EXPORT OSStatus AudioUnitReset(AudioUnit inUnit, AudioUnitScope inScope,
                                  AudioUnitElement inElement);

#ifdef __cplusplus
}
#endif

#endif
