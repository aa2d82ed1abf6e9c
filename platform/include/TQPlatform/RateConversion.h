#ifndef TQPLATFORM_RATECONVERSION_H
#define TQPLATFORM_RATECONVERSION_H

#include <AudioToolbox/AudioToolbox.h>

#ifdef __cplusplus
extern "C" {
#endif

/** [host thread] Makes ready what a unit needs to convert sound of `channels` channels between two
 * rates in slices of up to `maximumFrames` frames. That takes milliseconds; a unit that starts to
 * convert so later takes it over at once. Nothing is made twice. kAudio_ParamError for rates,
 * counts or sizes that no unit has, kAudio_MemFullError when memory runs out. */
AU_EXPORT OSStatus TQPrepareRateConversion(Float64 inputRate, Float64 outputRate, UInt32 channels,
                                           UInt32 maximumFrames);

#ifdef __cplusplus
}
#endif

#endif
