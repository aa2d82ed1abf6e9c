#ifndef TQPLATFORM_AUDIOCONVERTER_H
#define TQPLATFORM_AUDIOCONVERTER_H

/*
 * Linear PCM of one kind into another: sample type, byte order, interleaving, channels, rate.
 * Samples go through 32-bit floats. There are no codecs.
 *
 * A converter is used by one thread at a time. Every call answers kAudio_ParamError for a null
 * pointer and for a handle that is no converter (any more).
 */

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct OpaqueAudioConverter* AudioConverterRef;
typedef UInt32 AudioConverterPropertyID;

AU_ENUM(OSStatus){
    kAudioConverterErr_FormatNotSupported = 0x666D743F,              /* fmt? */
    kAudioConverterErr_OperationNotSupported = 0x6F703F3F,           /* op?? */
    kAudioConverterErr_PropertyNotSupported = 0x70726F70,            /* prop */
    kAudioConverterErr_InvalidInputSize = 0x696E737A,                /* insz */
    kAudioConverterErr_InvalidOutputSize = 0x6F74737A,               /* otsz */
    kAudioConverterErr_UnspecifiedError = 0x77686174,                /* what */
    kAudioConverterErr_BadPropertySizeError = 0x2173697A,            /* !siz */
    kAudioConverterErr_RequiresPacketDescriptionsError = 0x21706B64, /* !pkd */
    kAudioConverterErr_InputSampleRateOutOfRange = 0x21697372,       /* !isr */
    kAudioConverterErr_OutputSampleRateOutOfRange = 0x216F7372,      /* !osr */
    kAudioConverterErr_HardwareInUse = 0x68776975,                   /* hwiu */
    kAudioConverterErr_NoHardwarePermission = 0x7065726D,            /* perm */
};

AU_ENUM(AudioConverterPropertyID){
    kAudioConverterPropertyMinimumInputBufferSize = 0x6D696273,  /* mibs, UInt32, bytes */
    kAudioConverterPropertyMinimumOutputBufferSize = 0x6D6F6273, /* mobs, UInt32, bytes */
    kAudioConverterPropertyMaximumInputPacketSize = 0x78697073,  /* xips, UInt32, bytes */
    kAudioConverterPropertyMaximumOutputPacketSize = 0x786F7073, /* xops, UInt32, bytes */
    kAudioConverterPropertyCalculateInputBufferSize =
        0x63696273, /* cibs, UInt32, bytes: output in, input out */
    kAudioConverterPropertyCalculateOutputBufferSize =
        0x636F6273, /* cobs, UInt32, bytes: input in, output out */
    kAudioConverterChannelMap =
        0x63686D70, /* chmp, SInt32[], settable: for each output channel an input channel or -1 */
    kAudioConverterCurrentInputStreamDescription =
        0x61636964, /* acid, AudioStreamBasicDescription */
    kAudioConverterCurrentOutputStreamDescription =
        0x61636F64, /* acod, AudioStreamBasicDescription */

    /* Settable and read back; the resampler has one quality, the best. */
    kAudioConverterSampleRateConverterComplexity = 0x73726361, /* srca, UInt32 */
    kAudioConverterSampleRateConverterQuality = 0x73726371,    /* srcq, UInt32 */
    kAudioConverterPrimeMethod = 0x70726D6D,                   /* prmm, UInt32 */

    /* Of codecs and of what nobody asked for yet: kAudioConverterErr_PropertyNotSupported. */
    kAudioConverterPropertyInputCodecParameters = 0x69636470,      /* icdp */
    kAudioConverterPropertyOutputCodecParameters = 0x6F636470,     /* ocdp */
    kAudioConverterSampleRateConverterAlgorithm = 0x73726369,      /* srci */
    kAudioConverterSampleRateConverterInitialPhase = 0x73726370,   /* srcp */
    kAudioConverterCodecQuality = 0x63647175,                      /* cdqu */
    kAudioConverterPrimeInfo = 0x7072696D,                         /* prim */
    kAudioConverterDecompressionMagicCookie = 0x646D6763,          /* dmgc */
    kAudioConverterCompressionMagicCookie = 0x636D6763,            /* cmgc */
    kAudioConverterEncodeBitRate = 0x62726174,                     /* brat */
    kAudioConverterEncodeAdjustableSampleRate = 0x616A7372,        /* ajsr */
    kAudioConverterInputChannelLayout = 0x69636C20,                /* icl */
    kAudioConverterOutputChannelLayout = 0x6F636C20,               /* ocl */
    kAudioConverterApplicableEncodeBitRates = 0x61656272,          /* aebr */
    kAudioConverterAvailableEncodeBitRates = 0x76656272,           /* vebr */
    kAudioConverterApplicableEncodeSampleRates = 0x61657372,       /* aesr */
    kAudioConverterAvailableEncodeSampleRates = 0x76657372,        /* vesr */
    kAudioConverterAvailableEncodeChannelLayoutTags = 0x6165636C,  /* aecl */
    kAudioConverterPropertySettings = 0x61637073,                  /* acps */
    kAudioConverterPropertyBitDepthHint = 0x61636264,              /* acbd */
    kAudioConverterPropertyFormatList = 0x666C7374,                /* flst */
    kAudioConverterPropertyCanResumeFromInterruption = 0x63726669, /* crfi */
};

AU_ENUM(UInt32){
    kAudioConverterQuality_Max = 0x7F,    kAudioConverterQuality_High = 0x60,
    kAudioConverterQuality_Medium = 0x40, kAudioConverterQuality_Low = 0x20,
    kAudioConverterQuality_Min = 0,
};

AU_ENUM(UInt32){
    kAudioConverterSampleRateConverterComplexity_Linear = 0x6C696E65,    /* line */
    kAudioConverterSampleRateConverterComplexity_Normal = 0x6E6F726D,    /* norm */
    kAudioConverterSampleRateConverterComplexity_Mastering = 0x62617473, /* bats */
};

AU_ENUM(UInt32){
    kConverterPrimeMethod_Pre = 0,
    kConverterPrimeMethod_Normal = 1,
    kConverterPrimeMethod_None = 2,
};

typedef struct AudioConverterPrimeInfo {
    UInt32 leadingFrames;
    UInt32 trailingFrames;
} AudioConverterPrimeInfo;

/** Gives a converter its input: sets the data of `ioData` and `ioNumberDataPackets`, which says how
 * many frames are wanted, to how many there are; fewer and more are both right. The data stays the
 * program's and must stay where it is until the next call. None and noErr is the end of the
 * stream; any other status ends only the call that asked. */
typedef OSStatus (*AudioConverterComplexInputDataProc)(
    AudioConverterRef inAudioConverter, UInt32* ioNumberDataPackets, AudioBufferList* ioData,
    AudioStreamPacketDescription** outDataPacketDescription, void* inUserData);

/** [host thread] The caller owns the converter and gives it to AudioConverterDispose().
 * kAudioConverterErr_FormatNotSupported unless both are linear PCM that units play, with a rate. */
AU_EXPORT OSStatus AudioConverterNew(const AudioStreamBasicDescription* inSourceFormat,
                                     const AudioStreamBasicDescription* inDestinationFormat,
                                     AudioConverterRef* outAudioConverter);
/** [host thread] The same; there is no codec to choose from the classes. */
AU_EXPORT OSStatus AudioConverterNewSpecific(const AudioStreamBasicDescription* inSourceFormat,
                                             const AudioStreamBasicDescription* inDestinationFormat,
                                             UInt32 inNumberClassDescriptions,
                                             const AudioClassDescription* inClassDescriptions,
                                             AudioConverterRef* outAudioConverter);
/** [host thread] */
AU_EXPORT OSStatus AudioConverterDispose(AudioConverterRef inAudioConverter);
/** [any thread, one at a time] [real-time safe] Forgets the past: the next input begins a stream.
 */
AU_EXPORT OSStatus AudioConverterReset(AudioConverterRef inAudioConverter);

/** [any thread, one at a time] Either out pointer may be null.
 * kAudioConverterErr_PropertyNotSupported for an id that is not there. */
AU_EXPORT OSStatus AudioConverterGetPropertyInfo(AudioConverterRef inAudioConverter,
                                                 AudioConverterPropertyID inPropertyID,
                                                 UInt32* outSize, Boolean* outWritable);
/** [any thread, one at a time] Errors as above, and kAudioConverterErr_BadPropertySizeError when
 * the buffer is too small. */
AU_EXPORT OSStatus AudioConverterGetProperty(AudioConverterRef inAudioConverter,
                                             AudioConverterPropertyID inPropertyID,
                                             UInt32* ioPropertyDataSize, void* outPropertyData);
/** [any thread, one at a time] Errors as above, for any size but the exact one;
 * kAudioConverterErr_OperationNotSupported for an id that can only be read, kAudio_ParamError for a
 * channel map that names a channel that is not there. */
AU_EXPORT OSStatus AudioConverterSetProperty(AudioConverterRef inAudioConverter,
                                             AudioConverterPropertyID inPropertyID,
                                             UInt32 inPropertyDataSize, const void* inPropertyData);

/** [any thread, one at a time] [real-time safe] Converts whole frames of one buffer into another;
 * `ioOutputDataSize` is its room and then what was written, in bytes. Both formats are interleaved
 * or have one channel, and one rate: else kAudioConverterErr_OperationNotSupported.
 * kAudioConverterErr_InvalidInputSize for a part of a frame, kAudioConverterErr_InvalidOutputSize
 * when there is too little room. */
AU_EXPORT OSStatus AudioConverterConvertBuffer(AudioConverterRef inAudioConverter,
                                               UInt32 inInputDataSize, const void* inInputData,
                                               UInt32* ioOutputDataSize, void* outOutputData);
/** [any thread, one at a time] [real-time safe] The same for `inNumberPCMFrames` frames of any two
 * formats of one rate. */
AU_EXPORT OSStatus AudioConverterConvertComplexBuffer(AudioConverterRef inAudioConverter,
                                                      UInt32 inNumberPCMFrames,
                                                      const AudioBufferList* inInputData,
                                                      AudioBufferList* outOutputData);
/** [any thread, one at a time] [real-time safe, as far as the procedure is] Fills the list with up
 * to `ioOutputDataPacketSize` frames, at any two rates, and sets it to how many came: fewer at the
 * end of the stream, none behind it until AudioConverterReset(), and when the procedure had no
 * more, whose status is then answered. Nothing that was given is lost. The descriptions are not
 * looked at. */
AU_EXPORT OSStatus AudioConverterFillComplexBuffer(
    AudioConverterRef inAudioConverter, AudioConverterComplexInputDataProc inInputDataProc,
    void* inInputDataProcUserData, UInt32* ioOutputDataPacketSize, AudioBufferList* outOutputData,
    AudioStreamPacketDescription* outPacketDescription);

#ifdef __cplusplus
}
#endif

#endif
