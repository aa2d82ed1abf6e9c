#include <algorithm>
#include <cstring>

#include "component/Status.h"
#include "converter/Converter.h"

namespace tqplatform {

OSStatus Converter::propertyInfo(AudioConverterPropertyID id, UInt32& size,
                                 bool& writable) const noexcept {
    size = sizeof(UInt32);
    writable = false;
    switch (id) {
        case kAudioConverterPropertyMinimumInputBufferSize:
        case kAudioConverterPropertyMinimumOutputBufferSize:
        case kAudioConverterPropertyMaximumInputPacketSize:
        case kAudioConverterPropertyMaximumOutputPacketSize:
        case kAudioConverterPropertyCalculateInputBufferSize:
        case kAudioConverterPropertyCalculateOutputBufferSize:
            return noErr;
        case kAudioConverterSampleRateConverterComplexity:
        case kAudioConverterSampleRateConverterQuality:
        case kAudioConverterPrimeMethod:
            writable = true;
            return noErr;
        case kAudioConverterChannelMap:
            size = destination_.channels * static_cast<UInt32>(sizeof(SInt32));
            writable = true;
            return noErr;
        case kAudioConverterCurrentInputStreamDescription:
        case kAudioConverterCurrentOutputStreamDescription:
            size = sizeof(AudioStreamBasicDescription);
            return noErr;
        default:
            return kAudioConverterErr_PropertyNotSupported;
    }
}

OSStatus Converter::getProperty(AudioConverterPropertyID id, UInt32& size, void* data) const {
    UInt32 whole = 0;
    bool writable = false;
    const OSStatus status = propertyInfo(id, whole, writable);
    if (status != noErr) {
        return status;
    }
    if (size < whole) {
        return kAudioConverterErr_BadPropertySizeError;
    }
    size = whole;
    const auto put = [data](const auto& value) { std::memcpy(data, &value, sizeof value); };
    const auto asked = [data] {
        UInt32 bytes = 0;
        std::memcpy(&bytes, data, sizeof bytes);
        return bytes;
    };
    const Float64 fold = source_.sampleRate / destination_.sampleRate;
    // Rounded up: what is asked for is asked for whole.
    const auto scaled = [](UInt32 frames, Float64 factor) {
        return static_cast<UInt32>(std::min(4294967295.0, frames * factor + 1));
    };
    switch (id) {
        case kAudioConverterPropertyMinimumInputBufferSize:
        case kAudioConverterPropertyMaximumInputPacketSize:
            put(source_.bytesPerFrame);
            break;
        case kAudioConverterPropertyMinimumOutputBufferSize:
        case kAudioConverterPropertyMaximumOutputPacketSize:
            put(destination_.bytesPerFrame);
            break;
        case kAudioConverterPropertyCalculateInputBufferSize: {
            const UInt32 frames = asked() / destination_.bytesPerFrame;
            put((ratio_.equal() ? frames : scaled(frames, fold)) * source_.bytesPerFrame);
            break;
        }
        case kAudioConverterPropertyCalculateOutputBufferSize: {
            const UInt32 frames = asked() / source_.bytesPerFrame;
            put((ratio_.equal() ? frames : scaled(frames, 1 / fold)) * destination_.bytesPerFrame);
            break;
        }
        case kAudioConverterSampleRateConverterComplexity:
            put(complexity_);
            break;
        case kAudioConverterSampleRateConverterQuality:
            put(quality_);
            break;
        case kAudioConverterPrimeMethod:
            put(primeMethod_);
            break;
        case kAudioConverterCurrentInputStreamDescription:
            put(sourceDescription_);
            break;
        case kAudioConverterCurrentOutputStreamDescription:
            put(destinationDescription_);
            break;
        default: {
            const ChannelMap map = channelMap_.empty()
                                       ? usualMap(source_.channels, destination_.channels)
                                       : channelMap_;
            std::memcpy(data, map.data(), map.size() * sizeof(SInt32));
        }
    }
    return noErr;
}

OSStatus Converter::setProperty(AudioConverterPropertyID id, UInt32 size, const void* data) {
    UInt32 whole = 0;
    bool writable = false;
    const OSStatus status = propertyInfo(id, whole, writable);
    if (status != noErr) {
        return status;
    }
    if (!writable) {
        return kAudioConverterErr_OperationNotSupported;
    }
    if (size != whole) {
        return kAudioConverterErr_BadPropertySizeError;
    }
    if (id == kAudioConverterChannelMap) {
        ChannelMap map(destination_.channels);
        std::memcpy(map.data(), data, size);
        const bool isSound = std::all_of(map.begin(), map.end(), [this](SInt32 from) {
            return from >= -1 && from < static_cast<SInt32>(source_.channels);
        });
        if (isSound) {
            channelMap_ = std::move(map);
        }
        return okOr(isSound, kAudio_ParamError);
    }
    UInt32& kept = id == kAudioConverterSampleRateConverterComplexity ? complexity_
                   : id == kAudioConverterSampleRateConverterQuality  ? quality_
                                                                      : primeMethod_;
    std::memcpy(&kept, data, sizeof kept);
    return noErr;
}

}  // namespace tqplatform
