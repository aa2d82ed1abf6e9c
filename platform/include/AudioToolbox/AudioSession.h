#ifndef TQPLATFORM_AUDIOSESSION_H
#define TQPLATFORM_AUDIOSESSION_H

/*
 * The audio session in C, as programs of the early days use it: one session per process, a
 * listener for interruptions, properties of the hardware. Listeners are called without a lock held,
 * on the thread that made the change or posted the notice, so they may call back.
 */

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

AU_ENUM(OSStatus){
    kAudioSessionNoError = 0,
    kAudioSessionNotInitialized = 0x21696E69,           /* !ini */
    kAudioSessionAlreadyInitialized = 0x696E6974,       /* init */
    kAudioSessionUnsupportedPropertyError = 0x7074793F, /* pty? */
    kAudioSessionBadPropertySizeError = 0x2173697A,     /* !siz */
    kAudioSessionIncompatibleCategory = 0x21636174,     /* !cat */
    kAudioSessionUnspecifiedError = 0x77686174,         /* what */
};

typedef UInt32 AudioSessionPropertyID;

AU_ENUM(AudioSessionPropertyID){
    /* Settable. The device follows the preferred rate and duration, also while units play, or
     * refuses them. */
    kAudioSessionProperty_AudioCategory = 0x61636174,                     /* acat, UInt32 */
    kAudioSessionProperty_Mode = 0x6D6F6465,                              /* mode, UInt32 */
    kAudioSessionProperty_OverrideCategoryMixWithOthers = 0x636D6978,     /* cmix, UInt32 */
    kAudioSessionProperty_PreferredHardwareSampleRate = 0x68777372,       /* hwsr, Float64, Hz */
    kAudioSessionProperty_PreferredHardwareIOBufferDuration = 0x696F6264, /* iobd, Float32, s */

    /* Read only. */
    kAudioSessionProperty_CurrentHardwareSampleRate = 0x63687372,           /* chsr, Float64, Hz */
    kAudioSessionProperty_CurrentHardwareIOBufferDuration = 0x63686264,     /* chbd, Float32, s */
    kAudioSessionProperty_CurrentHardwareInputNumberChannels = 0x63686963,  /* chic, UInt32 */
    kAudioSessionProperty_CurrentHardwareOutputNumberChannels = 0x63686F63, /* choc, UInt32 */
    kAudioSessionProperty_CurrentHardwareInputLatency = 0x63696C74,         /* cilt, Float32, s */
    kAudioSessionProperty_CurrentHardwareOutputLatency = 0x636F6C74,        /* colt, Float32, s */
    kAudioSessionProperty_AudioInputAvailable = 0x61696176,                 /* aiav, UInt32 */

    /* Only listened to; listeners of the route are handed a null CFDictionaryRef. Here the session
     * lives in the program itself, so its server never dies. */
    kAudioSessionProperty_AudioRouteChange = 0x726F6368, /* roch */
    kAudioSessionProperty_ServerDied = 0x64696564,       /* died, UInt32 */
};

AU_ENUM(UInt32){
    kAudioSessionCategory_AmbientSound = 0x616D6269,     /* ambi */
    kAudioSessionCategory_SoloAmbientSound = 0x736F6C6F, /* solo, the one in force at first */
    kAudioSessionCategory_MediaPlayback = 0x6D656469,    /* medi */
    kAudioSessionCategory_RecordAudio = 0x72656361,      /* reca */
    kAudioSessionCategory_PlayAndRecord = 0x706C6172,    /* plar */
};

AU_ENUM(UInt32){
    kAudioSessionMode_Default = 0x64666C74, /* dflt */
};

AU_ENUM(UInt32){
    kAudioSessionEndInterruption = 0,
    kAudioSessionBeginInterruption = 1,
};

typedef void (*AudioSessionInterruptionListener)(void* inClientData, UInt32 inInterruptionState);
typedef void (*AudioSessionPropertyListener)(void* inClientData, AudioSessionPropertyID inID,
                                             UInt32 inDataSize, const void* inData);

/** [host thread] Opens the session, once per process. The run loop and its mode are not looked at;
 * the listener may be null. It is called whenever an AVAudioSessionInterruptionNotification is
 * posted. kAudioSessionAlreadyInitialized the second time. */
AU_EXPORT OSStatus AudioSessionInitialize(CFRunLoopRef inRunLoop, CFStringRef inRunLoopMode,
                                          AudioSessionInterruptionListener inInterruptionListener,
                                          void* inClientData);

/** [host thread] Answers kAudioSessionNoError, or kAudioSessionNotInitialized. Sound plays either
 * way. */
AU_EXPORT OSStatus AudioSessionSetActive(Boolean active);

/** [host thread] The size of a property's value in bytes. kAudioSessionNotInitialized,
 * kAudio_ParamError for a null pointer, kAudioSessionUnsupportedPropertyError for an id that cannot
 * be read. */
AU_EXPORT OSStatus AudioSessionGetPropertySize(AudioSessionPropertyID inID, UInt32* outDataSize);

/** [host thread] Copies a property's value and sets `ioDataSize` to its size. Errors as above, and
 *  kAudioSessionBadPropertySizeError when the buffer is too small. */
AU_EXPORT OSStatus AudioSessionGetProperty(AudioSessionPropertyID inID, UInt32* ioDataSize,
                                           void* outData);

/** [host thread] Sets a property; its listeners are called when the value is another one than
 * before. Errors as above (an id that is read only is unsupported here),
 *  kAudioSessionBadPropertySizeError for any size but the exact one,
 *  kAudioSessionIncompatibleCategory for an unknown category, kAudio_ParamError for a preferred
 *  rate or duration that is no positive finite number, and kAudioSessionUnspecifiedError for one
 *  that the device cannot have: it keeps its own, and nothing is remembered. */
AU_EXPORT OSStatus AudioSessionSetProperty(AudioSessionPropertyID inID, UInt32 inDataSize,
                                           const void* inData);

/** [host thread] Calls `inProc` when the property changes; the same pair twice is one listener.
 *  kAudioSessionNotInitialized, kAudio_ParamError for a null `inProc`,
 *  kAudioSessionUnsupportedPropertyError for an unknown id. */
AU_EXPORT OSStatus AudioSessionAddPropertyListener(AudioSessionPropertyID inID,
                                                   AudioSessionPropertyListener inProc,
                                                   void* inClientData);

/** [host thread] Forgets a listener; one that is not there is no error. A call under way may still
 * finish. Errors as for adding. */
AU_EXPORT OSStatus AudioSessionRemovePropertyListenerWithUserData(
    AudioSessionPropertyID inID, AudioSessionPropertyListener inProc, void* inClientData);

#ifdef __cplusplus
}
#endif

#endif
