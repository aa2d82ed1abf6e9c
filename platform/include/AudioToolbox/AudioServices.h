#ifndef TQPLATFORM_AUDIOSERVICES_H
#define TQPLATFORM_AUDIOSERVICES_H

/*
 * Short sounds that the system plays for a program, and the audio session, which programs of the
 * early days include from here. There are no system sounds on this platform and nothing that
 * vibrates: none can be made, and playing one does nothing, as on a phone that is muted.
 */

#include <AudioToolbox/AudioSession.h>
#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

AU_ENUM(OSStatus){
    kAudioServicesNoError = 0,
    kAudioServicesUnsupportedPropertyError = 0x7074793F, /* pty? */
    kAudioServicesBadPropertySizeError = 0x2173697A,     /* !siz */
    kAudioServicesBadSpecifierSizeError = 0x21737063,    /* !spc */
    kAudioServicesSystemSoundUnspecifiedError = -1500,
    kAudioServicesSystemSoundClientTimedOutError = -1501,
};

typedef UInt32 SystemSoundID;

AU_ENUM(SystemSoundID){
    kSystemSoundID_Vibrate = 0x00000FFF,
};

/** [any thread] Always kAudioServicesSystemSoundUnspecifiedError, and 0 in `outSystemSoundID`. */
AU_EXPORT OSStatus AudioServicesCreateSystemSoundID(CFURLRef inFileURL,
                                                    SystemSoundID* outSystemSoundID);
/** [any thread] kAudioServicesSystemSoundUnspecifiedError, as no sound was made. */
AU_EXPORT OSStatus AudioServicesDisposeSystemSoundID(SystemSoundID inSystemSoundID);
/** [any thread] Heard by nobody. */
AU_EXPORT void AudioServicesPlaySystemSound(SystemSoundID inSystemSoundID);
/** [any thread] Heard by nobody. */
AU_EXPORT void AudioServicesPlayAlertSound(SystemSoundID inSystemSoundID);

#ifdef __cplusplus
}
#endif

#endif
