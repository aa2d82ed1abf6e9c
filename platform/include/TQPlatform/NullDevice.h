#ifndef TQPLATFORM_NULLDEVICE_H
#define TQPLATFORM_NULLDEVICE_H

#include <AudioToolbox/AudioToolbox.h>

#ifdef __cplusplus
extern "C" {
#endif

/** [any thread] The null device renders the next `seconds` block after block, without waiting for
 * their time; time stamps go on as if it had waited. For a process that ends and whose units have
 * sound left. kAudio_ParamError unless 0 to 60; kAudioUnitErr_Uninitialized when the process uses
 * another device. */
AU_EXPORT OSStatus TQNullDeviceHurry(Float64 seconds);

#ifdef __cplusplus
}
#endif

#endif
