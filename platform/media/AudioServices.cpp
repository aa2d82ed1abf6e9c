#include <AudioToolbox/AudioServices.h>

OSStatus AudioServicesCreateSystemSoundID(CFURLRef, SystemSoundID* outSystemSoundID) {
    if (outSystemSoundID != nullptr) {
        *outSystemSoundID = 0;
    }
    return kAudioServicesSystemSoundUnspecifiedError;
}

OSStatus AudioServicesDisposeSystemSoundID(SystemSoundID) {
    return kAudioServicesSystemSoundUnspecifiedError;
}

void AudioServicesPlaySystemSound(SystemSoundID) {
}

void AudioServicesPlayAlertSound(SystemSoundID) {
}
