#ifndef TQPLATFORM_DEVICEPAUSE_H
#define TQPLATFORM_DEVICEPAUSE_H

#include <AudioToolbox/AudioToolbox.h>

#ifdef __cplusplus
extern "C" {
#endif

/** [any thread] For libraries whose locks render threads take, around a fork: no unit is rendered
 * from here to TQResumeDevice(), except on the calling thread; the device waits meanwhile. 0, with
 * nothing changed, when a render under way has not returned within that time. Nests. The child of a
 * fork is not paused. */
AU_EXPORT Boolean TQPauseDevice(UInt64 longestNanoseconds);
/** [any thread] Once for each TQPauseDevice() that was not 0. */
AU_EXPORT void TQResumeDevice(void);

#ifdef __cplusplus
}
#endif

#endif
