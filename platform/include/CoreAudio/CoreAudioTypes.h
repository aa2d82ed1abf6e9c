#ifndef TQPLATFORM_COREAUDIOTYPES_H
#define TQPLATFORM_COREAUDIOTYPES_H

/*
 * Scalars, stream descriptions, buffer lists, time stamps and channel layouts: the types that
 * every audio call of the platform speaks. All layouts are the platform's own, for 64-bit
 * little-endian machines with natural alignment.
 */

#include <stddef.h>
#include <stdint.h>

/** Marks the C functions that libtqplatform offers to programs. */
#ifndef AU_EXPORT
#define AU_EXPORT __attribute__((visibility("default")))
#endif

/** Begins a list of constants that have a fixed type in C++ and are plain integers in C. */
#ifndef AU_ENUM
#if defined(__cplusplus) && __cplusplus >= 201103L
#define AU_ENUM(type) enum : type
#else
#define AU_ENUM(type) enum
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;
typedef UInt8 Byte;
typedef SInt32 OSStatus;
/** Four characters, the first one in the most significant byte. */
typedef UInt32 OSType;
typedef UInt32 FourCharCode;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

AU_ENUM(OSStatus){
    noErr = 0,
    kAudio_UnimplementedError = -4,
    kAudio_FileNotFoundError = -43,
    kAudio_FilePermissionError = -54,
    kAudio_TooManyFilesOpenError = -42,
    kAudio_ParamError = -50,
    kAudio_MemFullError = -108,
};

/* ---- stream descriptions ---- */

typedef UInt32 AudioFormatID;
typedef UInt32 AudioFormatFlags;

/** How the samples of a stream lie in memory. For a format that is not interleaved the byte
 *  counts describe one buffer, so one channel. */
typedef struct AudioStreamBasicDescription {
    Float64 mSampleRate; /**< Hz */
    AudioFormatID mFormatID;
    AudioFormatFlags mFormatFlags;
    UInt32 mBytesPerPacket;
    UInt32 mFramesPerPacket;
    UInt32 mBytesPerFrame;
    UInt32 mChannelsPerFrame;
    UInt32 mBitsPerChannel;
    UInt32 mReserved;
} AudioStreamBasicDescription;

AU_ENUM(AudioFormatID){
    kAudioFormatLinearPCM = 0x6C70636D, /* lpcm */
};

AU_ENUM(AudioFormatFlags){
    kAudioFormatFlagIsFloat = 1U << 0,
    kAudioFormatFlagIsBigEndian = 1U << 1,
    kAudioFormatFlagIsSignedInteger = 1U << 2,
    kAudioFormatFlagIsPacked = 1U << 3,
    kAudioFormatFlagIsAlignedHigh = 1U << 4,
    kAudioFormatFlagIsNonInterleaved = 1U << 5,
    kAudioFormatFlagIsNonMixable = 1U << 6,

    kLinearPCMFormatFlagIsFloat = kAudioFormatFlagIsFloat,
    kLinearPCMFormatFlagIsBigEndian = kAudioFormatFlagIsBigEndian,
    kLinearPCMFormatFlagIsSignedInteger = kAudioFormatFlagIsSignedInteger,
    kLinearPCMFormatFlagIsPacked = kAudioFormatFlagIsPacked,
    kLinearPCMFormatFlagIsAlignedHigh = kAudioFormatFlagIsAlignedHigh,
    kLinearPCMFormatFlagIsNonInterleaved = kAudioFormatFlagIsNonInterleaved,
    kLinearPCMFormatFlagIsNonMixable = kAudioFormatFlagIsNonMixable,
    /* Fractional bits of a fixed-point sample: a number in the bits under the mask. */
    kLinearPCMFormatFlagsSampleFractionShift = 7,
    kLinearPCMFormatFlagsSampleFractionMask = 0x3FU << 7,

    kAudioFormatFlagsNativeEndian = 0,
    kAudioFormatFlagsNativeFloatPacked = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
    kAudioFormatFlagsCanonical = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
    kAudioFormatFlagsAudioUnitCanonical = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked |
                                          kAudioFormatFlagIsNonInterleaved,
};

/* No int in C holds this one, so it cannot be one of the constants above. */
#define kAudioFormatFlagsAreAllClear ((AudioFormatFlags)0x80000000U)
#define kLinearPCMFormatFlagsAreAllClear kAudioFormatFlagsAreAllClear

/** One sample of the usual format of unit buses; hosts rely on its size. */
typedef Float32 AudioUnitSampleType;
typedef Float32 AudioSampleType;

/* ---- buffers ---- */

typedef struct AudioBuffer {
    UInt32 mNumberChannels; /**< interleaved channels in this buffer */
    UInt32 mDataByteSize;
    void* mData;
} AudioBuffer;

/** Variable length: mNumberBuffers entries follow each other from mBuffers. */
typedef struct AudioBufferList {
    UInt32 mNumberBuffers;
    AudioBuffer mBuffers[1];
} AudioBufferList;

/* ---- time stamps ---- */

typedef struct SMPTETime {
    SInt16 mSubframes;
    SInt16 mSubframeDivisor;
    UInt32 mCounter;
    UInt32 mType;
    UInt32 mFlags;
    SInt16 mHours;
    SInt16 mMinutes;
    SInt16 mSeconds;
    SInt16 mFrames;
} SMPTETime;

typedef UInt32 AudioTimeStampFlags;

AU_ENUM(AudioTimeStampFlags){
    kAudioTimeStampNothingValid = 0,
    kAudioTimeStampSampleTimeValid = 1U << 0,
    kAudioTimeStampHostTimeValid = 1U << 1,
    kAudioTimeStampRateScalarValid = 1U << 2,
    kAudioTimeStampWordClockTimeValid = 1U << 3,
    kAudioTimeStampSMPTETimeValid = 1U << 4,
    kAudioTimeStampSampleHostTimeValid = kAudioTimeStampSampleTimeValid |
                                         kAudioTimeStampHostTimeValid,
};

typedef struct AudioTimeStamp {
    Float64 mSampleTime; /**< frames */
    UInt64 mHostTime;    /**< ticks of mach_absolute_time() */
    Float64 mRateScalar; /**< actual host ticks per sample over nominal ones */
    UInt64 mWordClockTime;
    SMPTETime mSMPTETime;
    AudioTimeStampFlags mFlags; /**< which of the fields hold something */
    UInt32 mReserved;
} AudioTimeStamp;

/* ---- channel layouts ---- */

typedef UInt32 AudioChannelLabel;
typedef UInt32 AudioChannelLayoutTag;
typedef UInt32 AudioChannelBitmap;
typedef UInt32 AudioChannelFlags;

typedef struct AudioChannelDescription {
    AudioChannelLabel mChannelLabel;
    AudioChannelFlags mChannelFlags;
    Float32 mCoordinates[3];
} AudioChannelDescription;

/** Variable length: mNumberChannelDescriptions entries. */
typedef struct AudioChannelLayout {
    AudioChannelLayoutTag mChannelLayoutTag;
    AudioChannelBitmap mChannelBitmap;
    UInt32 mNumberChannelDescriptions;
    AudioChannelDescription mChannelDescriptions[1];
} AudioChannelLayout;

/* A tag holds the number of channels in its low half. */
AU_ENUM(AudioChannelLayoutTag){
    kAudioChannelLayoutTag_UseChannelDescriptions = 0,
    kAudioChannelLayoutTag_UseChannelBitmap = 1U << 16,
    kAudioChannelLayoutTag_Mono = (100U << 16) | 1,
    kAudioChannelLayoutTag_Stereo = (101U << 16) | 2,
};

AU_ENUM(AudioChannelLabel){
    kAudioChannelLabel_Unused = 0, kAudioChannelLabel_Left = 1,  kAudioChannelLabel_Right = 2,
    kAudioChannelLabel_Center = 3, kAudioChannelLabel_Mono = 42,
};

#ifdef __cplusplus
}
#endif

#endif
