#ifndef TQPLATFORM_AUDIOOUTPUTUNIT_H
#define TQPLATFORM_AUDIOOUTPUTUNIT_H

/* Starting and stopping units of the type kAudioUnitType_Output. */

#include <AudioToolbox/AUComponent.h>

#ifdef __cplusplus
extern "C" {
#endif

/** [any thread] kAudioUnitErr_Uninitialized before AudioUnitInitialize(); starting a running unit
 * succeeds. */
AU_EXPORT OSStatus AudioOutputUnitStart(AudioUnit ci);
/** [any thread] When it returns no callback of the unit is running or will be entered, unless it
 * was called from one: then it only marks the stop. Stopping a stopped unit succeeds. */
AU_EXPORT OSStatus AudioOutputUnitStop(AudioUnit ci);

#ifdef __cplusplus
}
#endif

#endif
