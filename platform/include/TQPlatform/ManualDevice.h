#ifndef TQPLATFORM_MANUALDEVICE_H
#define TQPLATFORM_MANUALDEVICE_H

/*
 * The manual device: no thread and no clock. A test (or an offline renderer) started with
 * TQ_AUDIO_DEVICE=manual pumps it; every running output unit renders exactly the frames asked
 * for, at exactly the host time given, on the pumping thread.
 */

#include <AudioToolbox/AudioToolbox.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Every call answers kAudioUnitErr_Uninitialized when the process uses another device, and
 * kAudioUnitErr_CannotDoInCurrentContext from inside a slice or while another thread pumps.
 */

/** [any thread] Renders `frames` (1 to 4096) of every running output unit at `hostTime`
 * (mach_absolute_time ticks). kAudio_ParamError for a bad count. */
AU_EXPORT OSStatus TQManualDevicePump(UInt32 frames, UInt64 hostTime);

/** [any thread] The rate of the device, 48000 at first. Takes effect at once; running units see a
 * new hardware format. kAudio_ParamError unless 1000 to 384000. */
AU_EXPORT OSStatus TQManualDeviceSetSampleRate(Float64 sampleRate);

/** [render thread] What the device's microphone hears: called once per pump, before the units, with
 * zeroed planes (`channels` of `frames` float samples) to fill. */
typedef void (*TQManualDeviceInput)(void* refCon, UInt32 channels, UInt32 frames,
                                    float* const* planes);
/** [any thread] From the next pump on; null for silence. */
AU_EXPORT OSStatus TQManualDeviceSetInput(TQManualDeviceInput input, void* refCon);

/** [render thread] What the device plays: called once per pump, after the units, with their sum
 *  (float, not clipped). */
typedef void (*TQManualDeviceOutput)(void* refCon, const AudioTimeStamp* time, UInt32 channels,
                                     UInt32 frames, const float* const* planes);
/** [any thread] From the next pump on; null when the sum is not wanted. */
AU_EXPORT OSStatus TQManualDeviceSetOutput(TQManualDeviceOutput output, void* refCon);

#ifdef __cplusplus
}
#endif

#endif
