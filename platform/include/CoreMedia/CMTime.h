#ifndef TQPLATFORM_CMTIME_H
#define TQPLATFORM_CMTIME_H

#include <CoreAudio/CoreAudioTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int64_t CMTimeValue;
typedef int32_t CMTimeScale;
typedef int64_t CMTimeEpoch;
typedef uint32_t CMTimeFlags;

AU_ENUM(CMTimeFlags){
    kCMTimeFlags_Valid = 1U << 0,
    kCMTimeFlags_HasBeenRounded = 1U << 1,
    kCMTimeFlags_PositiveInfinity = 1U << 2,
    kCMTimeFlags_NegativeInfinity = 1U << 3,
    kCMTimeFlags_Indefinite = 1U << 4,
    kCMTimeFlags_ImpliedValueFlagsMask = kCMTimeFlags_PositiveInfinity |
                                         kCMTimeFlags_NegativeInfinity | kCMTimeFlags_Indefinite,
};

/* 64-bit fields at multiples of four, as programs that store these structs expect. */
#pragma pack(push, 4)

/** A time of value / timescale seconds. It says something only when the valid flag is set. */
typedef struct CMTime {
    CMTimeValue value;
    CMTimeScale timescale; /**< units per second */
    CMTimeFlags flags;
    CMTimeEpoch epoch;
} CMTime;

/** Times of one sample, or of each sample of a run: the duration is then one sample's. */
typedef struct CMSampleTimingInfo {
    CMTime duration;
    CMTime presentationTimeStamp; /**< when the first sample is heard */
    CMTime decodeTimeStamp;       /**< invalid when decoding order is presentation order */
} CMSampleTimingInfo;

#pragma pack(pop)

/** All zero. */
AU_EXPORT extern const CMTime kCMTimeInvalid;
AU_EXPORT extern const CMTime kCMTimeZero;
AU_EXPORT extern const CMTime kCMTimePositiveInfinity;
AU_EXPORT extern const CMTime kCMTimeNegativeInfinity;
AU_EXPORT extern const CMTime kCMTimeIndefinite;
AU_EXPORT extern const CMSampleTimingInfo kCMTimingInfoInvalid;

/** [any thread] [real-time safe] value / timescale seconds in epoch 0; kCMTimeInvalid unless
 *  `timescale` is positive. */
AU_EXPORT CMTime CMTimeMake(int64_t value, int32_t timescale);

#ifdef __cplusplus
}
#endif

#endif
