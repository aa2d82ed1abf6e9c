// The C functions of converters.

#include <stdexcept>

#include "common/NeverDestroyed.h"
#include "component/Guarded.h"
#include "component/HandleTable.h"
#include "component/Status.h"
#include "converter/Converter.h"

using namespace tqplatform;

namespace {

using ConverterTable = HandleTable<Converter>;

ConverterTable& converters() {
    static tqcommon::NeverDestroyed<ConverterTable> table;
    return *table;
}

template <class Call>
OSStatus withConverter(AudioConverterRef handle, const Call& call) noexcept {
    return guarded([&] {
        const ConverterTable::Access converter(converters(), handle);
        return converter ? call(*converter) : OSStatus{kAudio_ParamError};
    });
}

bool isConvertible(const AudioStreamBasicDescription& description) {
    const auto format = PCMFormat::parse(description);
    return format && format->sampleRate > 0;
}

}  // namespace

extern "C" {

OSStatus AudioConverterNew(const AudioStreamBasicDescription* inSourceFormat,
                           const AudioStreamBasicDescription* inDestinationFormat,
                           AudioConverterRef* outAudioConverter) {
    if (inSourceFormat == nullptr || inDestinationFormat == nullptr ||
        outAudioConverter == nullptr) {
        return kAudio_ParamError;
    }
    *outAudioConverter = nullptr;
    if (!isConvertible(*inSourceFormat) || !isConvertible(*inDestinationFormat)) {
        return kAudioConverterErr_FormatNotSupported;
    }
    return guarded([&] {
        try {
            void* const handle = converters().add(
                std::make_unique<Converter>(*inSourceFormat, *inDestinationFormat));
            *outAudioConverter = static_cast<AudioConverterRef>(handle);
            return okOr(handle != nullptr, kAudio_MemFullError);
        } catch (const std::runtime_error&) {
            // Rates that no resampler can be made for.
            return OSStatus{kAudioConverterErr_FormatNotSupported};
        }
    });
}

OSStatus AudioConverterNewSpecific(const AudioStreamBasicDescription* inSourceFormat,
                                   const AudioStreamBasicDescription* inDestinationFormat,
                                   UInt32 /*inNumberClassDescriptions*/,
                                   const AudioClassDescription* /*inClassDescriptions*/,
                                   AudioConverterRef* outAudioConverter) {
    return AudioConverterNew(inSourceFormat, inDestinationFormat, outAudioConverter);
}

OSStatus AudioConverterDispose(AudioConverterRef inAudioConverter) {
    return guarded(
        [&] { return okOr(converters().remove(inAudioConverter, true), kAudio_ParamError); });
}

OSStatus AudioConverterReset(AudioConverterRef inAudioConverter) {
    return withConverter(inAudioConverter, [](Converter& converter) {
        converter.reset();
        return OSStatus{noErr};
    });
}

OSStatus AudioConverterGetPropertyInfo(AudioConverterRef inAudioConverter,
                                       AudioConverterPropertyID inPropertyID, UInt32* outSize,
                                       Boolean* outWritable) {
    return withConverter(inAudioConverter, [&](Converter& converter) {
        UInt32 size = 0;
        bool writable = false;
        const OSStatus status = converter.propertyInfo(inPropertyID, size, writable);
        if (status == noErr && outSize != nullptr) {
            *outSize = size;
        }
        if (status == noErr && outWritable != nullptr) {
            *outWritable = writable ? 1 : 0;
        }
        return status;
    });
}

OSStatus AudioConverterGetProperty(AudioConverterRef inAudioConverter,
                                   AudioConverterPropertyID inPropertyID,
                                   UInt32* ioPropertyDataSize, void* outPropertyData) {
    if (ioPropertyDataSize == nullptr || outPropertyData == nullptr) {
        return kAudio_ParamError;
    }
    return withConverter(inAudioConverter, [&](Converter& converter) {
        return converter.getProperty(inPropertyID, *ioPropertyDataSize, outPropertyData);
    });
}

OSStatus AudioConverterSetProperty(AudioConverterRef inAudioConverter,
                                   AudioConverterPropertyID inPropertyID, UInt32 inPropertyDataSize,
                                   const void* inPropertyData) {
    if (inPropertyData == nullptr) {
        return kAudio_ParamError;
    }
    return withConverter(inAudioConverter, [&](Converter& converter) {
        return converter.setProperty(inPropertyID, inPropertyDataSize, inPropertyData);
    });
}

OSStatus AudioConverterConvertBuffer(AudioConverterRef inAudioConverter, UInt32 inInputDataSize,
                                     const void* inInputData, UInt32* ioOutputDataSize,
                                     void* outOutputData) {
    if (inInputData == nullptr || ioOutputDataSize == nullptr || outOutputData == nullptr) {
        return kAudio_ParamError;
    }
    return withConverter(inAudioConverter, [&](Converter& converter) {
        return converter.convertBuffer(inInputDataSize, inInputData, *ioOutputDataSize,
                                       outOutputData);
    });
}

OSStatus AudioConverterConvertComplexBuffer(AudioConverterRef inAudioConverter,
                                            UInt32 inNumberPCMFrames,
                                            const AudioBufferList* inInputData,
                                            AudioBufferList* outOutputData) {
    if (inInputData == nullptr || outOutputData == nullptr) {
        return kAudio_ParamError;
    }
    return withConverter(inAudioConverter, [&](Converter& converter) {
        return converter.convertLists(inNumberPCMFrames, *inInputData, *outOutputData);
    });
}

OSStatus AudioConverterFillComplexBuffer(AudioConverterRef inAudioConverter,
                                         AudioConverterComplexInputDataProc inInputDataProc,
                                         void* inInputDataProcUserData,
                                         UInt32* ioOutputDataPacketSize,
                                         AudioBufferList* outOutputData,
                                         AudioStreamPacketDescription* /*outPacketDescription*/) {
    if (inInputDataProc == nullptr || ioOutputDataPacketSize == nullptr ||
        outOutputData == nullptr) {
        return kAudio_ParamError;
    }
    return withConverter(inAudioConverter, [&](Converter& converter) {
        return converter.fill({inInputDataProc, inInputDataProcUserData}, *ioOutputDataPacketSize,
                              *outOutputData);
    });
}

}  // extern "C"
