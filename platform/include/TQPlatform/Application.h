#ifndef TQPLATFORM_APPLICATION_H
#define TQPLATFORM_APPLICATION_H

#include <AudioToolbox/AudioToolbox.h>

#ifdef __cplusplus
extern "C" {
#endif

/** [host thread] The program says that nobody sees it any more: nothing here can see windows. Sends
 * UIApplicationDidEnterBackgroundNotification on the calling thread. */
AU_EXPORT void TQApplicationEnteredBackground(void);

#ifdef __cplusplus
}
#endif

#endif
