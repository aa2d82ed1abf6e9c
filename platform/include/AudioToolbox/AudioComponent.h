#ifndef TQPLATFORM_AUDIOCOMPONENT_H
#define TQPLATFORM_AUDIOCOMPONENT_H

/* Finding audio components and making instances of them. */

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A kind of unit, for the life of the process. */
typedef struct OpaqueAudioComponent* AudioComponent;
/** One unit. Never dereferenced; a disposed one is recognised and refused. */
typedef struct OpaqueAudioComponentInstance* AudioComponentInstance;

typedef struct AudioComponentDescription {
    OSType componentType;
    OSType componentSubType;
    OSType componentManufacturer;
    UInt32 componentFlags;
    UInt32 componentFlagsMask;
} AudioComponentDescription;

AU_ENUM(UInt32){
    kAudioComponentFlag_Unsearchable = 1,
    kAudioComponentFlag_SandboxSafe = 2,
    kAudioComponentFlag_IsV3AudioUnit = 4,
    kAudioComponentFlag_RequiresAsyncInstantiation = 8,
};

AU_ENUM(OSStatus){
    kAudioComponentErr_InstanceTimedOut = -66754,
    kAudioComponentErr_DuplicateDescription = -66752,
    kAudioComponentErr_UnsupportedType = -66751,
    kAudioComponentErr_TooManyInstances = -66750,
    kAudioComponentErr_InstanceInvalidated = -66749,
    kAudioComponentErr_NotPermitted = -66748,
    kAudioComponentErr_InitializationTimedOut = -66747,
    kAudioComponentErr_InvalidFormat = -66746,
};

/** [any thread] The first component behind `inComponent` (null: of all) that matches; a zero in
 * type, subtype or manufacturer matches anything, of the flags only those in the mask count. Null
 * at the end or for a null description. */
AU_EXPORT AudioComponent AudioComponentFindNext(AudioComponent inComponent,
                                                const AudioComponentDescription* inDesc);
/** [any thread] How many components match. */
AU_EXPORT UInt32 AudioComponentCount(const AudioComponentDescription* inDesc);
/** [any thread] */
AU_EXPORT OSStatus AudioComponentGetDescription(AudioComponent inComponent,
                                                AudioComponentDescription* outDesc);
/** [host thread] The caller owns the name and releases it with CFRelease(). */
AU_EXPORT OSStatus AudioComponentCopyName(AudioComponent inComponent, CFStringRef* outName);
/** [any thread] Major, minor and fix number in the bytes 0xMMMMmmff. */
AU_EXPORT OSStatus AudioComponentGetVersion(AudioComponent inComponent, UInt32* outVersion);
/** [host thread] The caller owns the instance and gives it to AudioComponentInstanceDispose(). */
AU_EXPORT OSStatus AudioComponentInstanceNew(AudioComponent inComponent,
                                             AudioComponentInstance* outInstance);
/** [any thread] Stops and uninitialises the unit when needed, waits until no thread is inside it
 * and frees it. From inside one of the unit's own callbacks it does not wait: the unit goes when
 * the callback has returned. A handle that is no unit (any more) answers
 *  kAudioComponentErr_InstanceInvalidated, null kAudio_ParamError. */
AU_EXPORT OSStatus AudioComponentInstanceDispose(AudioComponentInstance inInstance);
/** [any thread] Null when the handle is no unit (any more). */
AU_EXPORT AudioComponent AudioComponentInstanceGetComponent(AudioComponentInstance inInstance);

#ifdef __cplusplus
}
#endif

#endif
