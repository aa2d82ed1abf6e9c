#pragma once

/* The desktop's audio on top of the phone's, for back ends that were written for both and prefer
 * the desktop: its output units are the phone's one, its one device is the device of the process.
 * Included before everything else. */

#include <AudioUnit/AudioUnit.h>
#include <CoreFoundation/CoreFoundation.h>
#include <mach/mach_time.h>
#include <math.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

#define kAudioUnitSubType_DefaultOutput kAudioUnitSubType_RemoteIO
#define kAudioUnitSubType_HALOutput kAudioUnitSubType_RemoteIO

/* ---- the component calls' former names ---- */

typedef SInt32 ComponentResult;
typedef AudioComponent Component;
typedef AudioComponentInstance ComponentInstance;
typedef AudioComponentDescription ComponentDescription;
#define FindNextComponent AudioComponentFindNext
#define OpenAComponent AudioComponentInstanceNew
#define CloseComponent AudioComponentInstanceDispose

/* ---- devices ---- */

typedef UInt32 AudioObjectID;
typedef AudioObjectID AudioDeviceID;
typedef AudioObjectID AudioStreamID;
typedef UInt32 AudioObjectPropertySelector;
typedef UInt32 AudioObjectPropertyScope;
typedef UInt32 AudioObjectPropertyElement;
typedef AudioObjectPropertySelector AudioDevicePropertyID;

typedef struct AudioObjectPropertyAddress {
    AudioObjectPropertySelector mSelector;
    AudioObjectPropertyScope mScope;
    AudioObjectPropertyElement mElement;
} AudioObjectPropertyAddress;

typedef struct AudioValueTranslation {
    void* mInputData;
    UInt32 mInputDataSize;
    void* mOutputData;
    UInt32 mOutputDataSize;
} AudioValueTranslation;

typedef struct AudioStreamRangedDescription {
    AudioStreamBasicDescription mFormat;
    Float64 mMinimumRate;
    Float64 mMaximumRate;
} AudioStreamRangedDescription;

typedef OSStatus (*AudioObjectPropertyListenerProc)(AudioObjectID object, UInt32 count,
                                                    const AudioObjectPropertyAddress* addresses,
                                                    void* data);

enum {
    kAudioObjectUnknown = 0,
    kAudioDeviceUnknown = 0,
    kAudioObjectSystemObject = 1,
    kDesktopDevice = 2, /* the only one */
    kDesktopStream = 3, /* its only stream */

    kAudioObjectPropertyScopeGlobal = 0x676C6F62, /* glob */
    kAudioObjectPropertyScopeInput = 0x696E7074,  /* inpt */
    kAudioObjectPropertyScopeOutput = 0x6F757470, /* outp */
    kAudioDevicePropertyScopeInput = kAudioObjectPropertyScopeInput,
    kAudioDevicePropertyScopeOutput = kAudioObjectPropertyScopeOutput,
    kAudioObjectPropertyElementMaster = 0,
    kAudioObjectPropertyElementMain = 0,

    kAudioHardwareNoError = 0,
    kAudioHardwareUnknownPropertyError = 0x77686F3F,      /* who? */
    kAudioHardwareBadObjectError = 0x216F626A,            /* !obj */
    kAudioHardwareUnspecifiedError = 0x77686174,          /* what */
    kAudioDeviceUnsupportedFormatError = 0x21646174,      /* !dat */
    kAudioHardwareNotRunningError = 0x73746F70,           /* stop */
    kAudioHardwareBadPropertySizeError = 0x2173697A,      /* !siz */
    kAudioHardwareIllegalOperationError = 0x6E6F7065,     /* nope */
    kAudioHardwareBadDeviceError = 0x21646576,            /* !dev */
    kAudioHardwareBadStreamError = 0x21737472,            /* !str */
    kAudioHardwareUnsupportedOperationError = 0x756E6F70, /* unop */
    kAudioDevicePermissionsError = 0x21686F67,            /* !hog */

    kAudioHardwarePropertyDevices = 0x64657623,             /* dev# */
    kAudioHardwarePropertyDefaultOutputDevice = 0x644F7574, /* dOut */
    kAudioHardwarePropertyDefaultInputDevice = 0x64496E20,  /* dIn  */
    kAudioHardwarePropertyServiceRestarted = 0x73727374,    /* srst */
    kAudioHardwarePropertyRunLoop = 0x726E6C70,             /* rnlp */
    kAudioHardwarePropertyDeviceForUID = 0x64756964,        /* duid */

    kAudioObjectPropertyName = 0x6C6E616D,         /* lnam */
    kAudioObjectPropertyManufacturer = 0x6C6D616B, /* lmak */
    kAudioDevicePropertyDeviceName = 0x6E616D65,   /* name */
    kAudioDevicePropertyDeviceNameCFString = kAudioObjectPropertyName,
    kAudioDevicePropertyDeviceUID = 0x75696420,                   /* uid  */
    kAudioDevicePropertyTransportType = 0x7472616E,               /* tran */
    kAudioDevicePropertyDataSource = 0x73737263,                  /* ssrc */
    kAudioDevicePropertyDeviceCanBeDefaultDevice = 0x64666C74,    /* dflt */
    kAudioDevicePropertyDeviceIsRunning = 0x676F696E,             /* goin */
    kAudioDevicePropertyDeviceIsAlive = 0x6C69766E,               /* livn */
    kAudioDevicePropertyDeviceHasChanged = 0x64696666,            /* diff */
    kAudioDevicePropertyLatency = 0x6C746E63,                     /* ltnc */
    kAudioDevicePropertySafetyOffset = 0x73616674,                /* saft */
    kAudioDevicePropertyBufferFrameSize = 0x6673697A,             /* fsiz */
    kAudioDevicePropertyBufferFrameSizeRange = 0x66737A23,        /* fsz# */
    kAudioDevicePropertyBufferSize = 0x6273697A,                  /* bsiz */
    kAudioDevicePropertyNominalSampleRate = 0x6E737274,           /* nsrt */
    kAudioDevicePropertyAvailableNominalSampleRates = 0x6E737223, /* nsr# */
    kAudioDevicePropertyActualSampleRate = 0x61737274,            /* asrt */
    kAudioDevicePropertyStreams = 0x73746D23,                     /* stm# */
    kAudioDevicePropertyStreamConfiguration = 0x736C6179,         /* slay */
    kAudioDevicePropertyStreamFormat = 0x73666D74,                /* sfmt */
    kAudioDevicePropertyPreferredChannelLayout = 0x73726E64,      /* srnd */
    kAudioDevicePropertyPreferredChannelsForStereo = 0x64636832,  /* dch2 */
    kAudioDevicePropertyHogMode = 0x6F696E6B,                     /* oink */
    kAudioDevicePropertySupportsMixing = 0x6D69783F,              /* mix? */
    kAudioDevicePropertyVolumeScalar = 0x766F6C6D,                /* volm */
    kAudioDevicePropertyMute = 0x6D757465,                        /* mute */
    kAudioDeviceTransportTypeBluetooth = 0x626C7565,              /* blue */
    kAudioDeviceTransportTypeBluetoothLE = 0x626C6561,            /* blea */
    kAudioDeviceTransportTypeUSB = 0x75736220,                    /* usb  */
    kAudioDeviceProcessorOverload = 0x6F766572,                   /* over */
    kAudioStreamPropertyDirection = 0x73646972,                   /* sdir */
    kAudioStreamPropertyTerminalType = 0x7465726D,                /* term */
    kAudioStreamPropertyLatency = kAudioDevicePropertyLatency,
    kAudioStreamPropertyVirtualFormat = kAudioDevicePropertyStreamFormat,
    kAudioStreamPropertyPhysicalFormat = 0x70667420,           /* pft  */
    kAudioStreamPropertyAvailablePhysicalFormats = 0x70667461, /* pfta */
    kAudioStreamTerminalTypeUnknown = 0,
    kAudioStreamTerminalTypeSpeaker = 0x73706B72,                         /* spkr */
    kAudioStreamTerminalTypeHeadphones = 0x68647068,                      /* hdph */
    kAudioStreamTerminalTypeReceiverSpeaker = 0x7273706B,                 /* rspk */
    kAudioStreamTerminalTypeMicrophone = 0x6D696372,                      /* micr */
    kAudioStreamTerminalTypeHeadsetMicrophone = 0x686D6963,               /* hmic */
    kAudioStreamTerminalTypeReceiverMicrophone = 0x726D6963,              /* rmic */
    kAudioHardwareServiceDeviceProperty_VirtualMasterVolume = 0x766D7663, /* vmvc */
};

OSStatus AudioObjectGetPropertyDataSize(AudioObjectID object,
                                        const AudioObjectPropertyAddress* address,
                                        UInt32 qualifierSize, const void* qualifier, UInt32* size);
OSStatus AudioObjectGetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifierSize, const void* qualifier, UInt32* size,
                                    void* data);
OSStatus AudioObjectSetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifierSize, const void* qualifier, UInt32 size,
                                    const void* data);
OSStatus AudioObjectIsPropertySettable(AudioObjectID object,
                                       const AudioObjectPropertyAddress* address,
                                       Boolean* settable);
Boolean AudioObjectHasProperty(AudioObjectID object, const AudioObjectPropertyAddress* address);
OSStatus AudioObjectAddPropertyListener(AudioObjectID object,
                                        const AudioObjectPropertyAddress* address,
                                        AudioObjectPropertyListenerProc listener, void* data);
OSStatus AudioObjectRemovePropertyListener(AudioObjectID object,
                                           const AudioObjectPropertyAddress* address,
                                           AudioObjectPropertyListenerProc listener, void* data);

/* A desktop's output unit answers its device's properties and can be told which device; and its
 * input can be off. */
OSStatus desktopGetProperty(AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope,
                            AudioUnitElement element, void* data, UInt32* size);
OSStatus desktopSetProperty(AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope,
                            AudioUnitElement element, const void* data, UInt32 size);
#ifndef DESKTOP_ITSELF
#define AudioUnitGetProperty desktopGetProperty
#define AudioUnitSetProperty desktopSetProperty
#endif

/* ---- host time ---- */

static inline UInt64 AudioGetCurrentHostTime(void) {
    return mach_absolute_time();
}
static inline UInt64 AudioConvertHostTimeToNanos(UInt64 ticks) {
    return ticks;
}
static inline UInt64 AudioConvertNanosToHostTime(UInt64 nanos) {
    return nanos;
}
static inline double AudioGetHostClockFrequency(void) {
    return 1e9;
}

#ifdef __cplusplus
}
#endif
