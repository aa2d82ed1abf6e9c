#ifndef TQPLATFORM_HUSHEDOUTPUT_H
#define TQPLATFORM_HUSHEDOUTPUT_H

#include <AudioToolbox/AudioToolbox.h>

#ifdef __cplusplus
extern "C" {
#endif

/** [host thread] Before the output unit is initialised: it follows the clock of whatever device
 * runs, or of the null device when none does, is never heard and never makes a device open. For
 * units that take sound elsewhere. kAudioUnitErr_Initialized when it is initialised already,
 * kAudioUnitErr_InvalidProperty when it is no output unit. */
AU_EXPORT OSStatus TQHushOutputUnit(AudioUnit unit);

#ifdef __cplusplus
}
#endif

#endif
