#ifndef TQPLATFORM_DEVICES_H
#define TQPLATFORM_DEVICES_H

#include <AudioToolbox/AudioToolbox.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Where a program's sound may go, or come from. The texts live during the call only. */
typedef struct TQDeviceDescription {
    const char* server; /**< "pulse", "jack" or "alsa" */
    const char* name;   /**< as the server has it */
    const char* title;  /**< for people */
    Boolean hears;      /**< a microphone; else it plays */
    Boolean isDefault;  /**< who asks for none gets it; never what programs play */
    Float64 sampleRate; /**< Hz, its own */
    UInt32 channels;
} TQDeviceDescription;

typedef void (*TQDeviceListing)(void* refCon, const TQDeviceDescription* device);

/** [host thread] Calls `each` for every device of the server or driver that TQ_AUDIO_DEVICE names,
 * or of the first that answers, before this returns. Opens none of them, but asks the server, which
 * may take a second. kAudioUnitErr_FailedInitialization when none answers. */
AU_EXPORT OSStatus TQListDevices(TQDeviceListing each, void* refCon);

/** [host thread] Units hear the microphone of that name (TQDeviceDescription.name) from now on;
 * null or empty for the server's default, or another where that is what programs play: monitors of
 * speakers and the recorder's live sources are heard by name only. One that is not there is heard
 * as soon as it is. Waits a second at most while a unit listens. kAudioUnitErr_Uninitialized when
 * the process's device has none to choose from and none comes later: a clock that was chosen, or
 * that is used since no server or driver was reached. */
AU_EXPORT OSStatus TQPreferMicrophone(const char* name);

/** [host thread] Whether a unit listens and a microphone is open for it; else what it hears is
 * silence. */
AU_EXPORT Boolean TQIsHearing(void);

#ifdef __cplusplus
}
#endif

#endif
