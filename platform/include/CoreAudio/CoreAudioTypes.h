#ifndef TQPLATFORM_COREAUDIOTYPES_H
#define TQPLATFORM_COREAUDIOTYPES_H

/*
 * Scalars, stream descriptions, buffer lists, time stamps and channel layouts: the types that
 * every audio call of the platform speaks. All layouts are the platform's own, for 64-bit
 * little-endian machines with natural alignment.
 */

#include <CoreAudio/AudioChannelLayoutTags.h>
#include <MacTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

AU_ENUM(OSStatus){
    kAudio_UnimplementedError = -4,   kAudio_FileNotFoundError = -43,
    kAudio_FilePermissionError = -54, kAudio_TooManyFilesOpenError = -42,
    kAudio_ParamError = -50,          kAudio_MemFullError = -108,
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

/* Only linear PCM is played and converted; the others are names of what files hold. */
AU_ENUM(AudioFormatID){
    kAudioFormatLinearPCM = 0x6C70636D,            /* lpcm */
    kAudioFormatAC3 = 0x61632D33,                  /* ac-3 */
    kAudioFormat60958AC3 = 0x63616333,             /* cac3 */
    kAudioFormatAppleIMA4 = 0x696D6134,            /* ima4 */
    kAudioFormatMPEG4AAC = 0x61616320,             /* "aac " */
    kAudioFormatMPEG4CELP = 0x63656C70,            /* celp */
    kAudioFormatMPEG4HVXC = 0x68767863,            /* hvxc */
    kAudioFormatMPEG4TwinVQ = 0x74777671,          /* twvq */
    kAudioFormatMACE3 = 0x4D414333,                /* MAC3 */
    kAudioFormatMACE6 = 0x4D414336,                /* MAC6 */
    kAudioFormatULaw = 0x756C6177,                 /* ulaw */
    kAudioFormatALaw = 0x616C6177,                 /* alaw */
    kAudioFormatQDesign = 0x51444D43,              /* QDMC */
    kAudioFormatQDesign2 = 0x51444D32,             /* QDM2 */
    kAudioFormatQUALCOMM = 0x51636C70,             /* Qclp */
    kAudioFormatMPEGLayer1 = 0x2E6D7031,           /* .mp1 */
    kAudioFormatMPEGLayer2 = 0x2E6D7032,           /* .mp2 */
    kAudioFormatMPEGLayer3 = 0x2E6D7033,           /* .mp3 */
    kAudioFormatTimeCode = 0x74696D65,             /* time */
    kAudioFormatMIDIStream = 0x6D696469,           /* midi */
    kAudioFormatParameterValueStream = 0x61707673, /* apvs */
    kAudioFormatAppleLossless = 0x616C6163,        /* alac */
    kAudioFormatMPEG4AAC_HE = 0x61616368,          /* aach */
    kAudioFormatMPEG4AAC_LD = 0x6161636C,          /* aacl */
    kAudioFormatMPEG4AAC_ELD = 0x61616365,         /* aace */
    kAudioFormatMPEG4AAC_ELD_SBR = 0x61616366,     /* aacf */
    kAudioFormatMPEG4AAC_ELD_V2 = 0x61616367,      /* aacg */
    kAudioFormatMPEG4AAC_HE_V2 = 0x61616370,       /* aacp */
    kAudioFormatMPEG4AAC_Spatial = 0x61616373,     /* aacs */
    kAudioFormatAMR = 0x73616D72,                  /* samr */
    kAudioFormatAMR_WB = 0x73617762,               /* sawb */
    kAudioFormatAudible = 0x41554442,              /* AUDB */
    kAudioFormatiLBC = 0x696C6263,                 /* ilbc */
    kAudioFormatDVIIntelIMA = 0x6D730011,
    kAudioFormatMicrosoftGSM = 0x6D730031,
    kAudioFormatAES3 = 0x61657333,        /* aes3 */
    kAudioFormatEnhancedAC3 = 0x65632D33, /* ec-3 */
    kAudioFormatFLAC = 0x666C6163,        /* flac */
    kAudioFormatOpus = 0x6F707573,        /* opus */
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

/** A rate that is not known, or may be any. */
AU_ENUM(UInt32){
    kAudioStreamAnyRate = 0,
};

/** One packet of a stream whose packets differ in size. */
typedef struct AudioStreamPacketDescription {
    SInt64 mStartOffset; /**< bytes from the beginning of the buffer */
    UInt32 mVariableFramesInPacket;
    UInt32 mDataByteSize;
} AudioStreamPacketDescription;

/** One kind of codec. */
typedef struct AudioClassDescription {
    OSType mType;
    OSType mSubType;
    OSType mManufacturer;
} AudioClassDescription;

/** Everything from one number to another, both included. */
typedef struct AudioValueRange {
    Float64 mMinimum;
    Float64 mMaximum;
} AudioValueRange;

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

#ifdef __cplusplus
}
#endif

#endif
