// The one device of the desktop stand-in, and what its output units answer beyond the phone's.

#define DESKTOP_ITSELF

#include "Desktop.h"

#include <cstring>

#include "../Player.h"

namespace {

template <class Value>
OSStatus give(const Value& value, UInt32* size, void* data) {
    if (data != nullptr) {
        if (*size < sizeof(value)) {
            return kAudioHardwareBadPropertySizeError;
        }
        std::memcpy(data, &value, sizeof(value));
    }
    *size = sizeof(value);
    return noErr;
}

OSStatus giveName(UInt32* size, void* data) {
    // As on the desktop the caller owns it; asking for the size alone makes none.
    const CFStringRef name =
        data == nullptr
            ? nullptr
            : CFStringCreateWithCString(kCFAllocatorDefault, "device", kCFStringEncodingUTF8);
    return give(name, size, data);
}

AudioStreamBasicDescription deviceFormat() {
    return {kPlayerRate,
            kAudioFormatLinearPCM,
            kAudioFormatFlagsNativeFloatPacked,
            8,
            1,
            8,
            kPlayerChannels,
            32,
            0};
}

OSStatus systemProperty(UInt32 id, UInt32* size, void* data) {
    switch (id) {
        case kAudioHardwarePropertyDevices:
        case kAudioHardwarePropertyDefaultOutputDevice:
        case kAudioHardwarePropertyDefaultInputDevice:
            return give(AudioObjectID{kDesktopDevice}, size, data);
        case kAudioHardwarePropertyDeviceForUID:
            *static_cast<AudioObjectID*>(static_cast<AudioValueTranslation*>(data)->mOutputData) =
                kDesktopDevice;
            return noErr;
        default:
            return kAudioHardwareUnknownPropertyError;
    }
}

OSStatus deviceProperty(UInt32 id, UInt32 scope, UInt32* size, void* data) {
    struct Range {
        Float64 minimum;
        Float64 maximum;
    };
    const bool isInput = scope == kAudioObjectPropertyScopeInput;
    switch (id) {
        case kAudioObjectPropertyName:
        case kAudioObjectPropertyManufacturer:
        case kAudioDevicePropertyDeviceUID:
            return giveName(size, data);
        case kAudioDevicePropertyDeviceName:
            if (*size > 0 && data != nullptr) {
                std::strncpy(static_cast<char*>(data), "device", *size);
            }
            return noErr;
        case kAudioDevicePropertyDeviceCanBeDefaultDevice:
        case kAudioDevicePropertyDeviceIsRunning:
        case kAudioDevicePropertyDeviceIsAlive:
        case kAudioDevicePropertySupportsMixing:
            return give(UInt32{1}, size, data);
        case kAudioDevicePropertyLatency:
        case kAudioDevicePropertySafetyOffset:
        case kAudioDevicePropertyTransportType:
        case kAudioDevicePropertyDataSource:
        case kAudioStreamPropertyDirection:
            return give(UInt32{0}, size, data);
        case kAudioDevicePropertyHogMode:
            return give(SInt32{-1}, size, data);
        case kAudioDevicePropertyBufferFrameSize:
            return give(UInt32{kPlayerSlice}, size, data);
        case kAudioDevicePropertyBufferFrameSizeRange:
            return give(Range{16, 4096}, size, data);
        case kAudioDevicePropertyNominalSampleRate:
        case kAudioDevicePropertyActualSampleRate:
            return give(Float64{kPlayerRate}, size, data);
        case kAudioDevicePropertyAvailableNominalSampleRates:
            return give(Range{kPlayerRate, kPlayerRate}, size, data);
        case kAudioDevicePropertyStreams:
            if (isInput) {
                *size = 0;
                return noErr;
            }
            return give(AudioStreamID{kDesktopStream}, size, data);
        case kAudioDevicePropertyStreamConfiguration: {
            AudioBufferList list{};
            list.mNumberBuffers = isInput ? 0 : 1;
            list.mBuffers[0].mNumberChannels = kPlayerChannels;
            return give(list, size, data);
        }
        case kAudioDevicePropertyStreamFormat:
        case kAudioStreamPropertyPhysicalFormat:
            return give(deviceFormat(), size, data);
        case kAudioDevicePropertyPreferredChannelLayout: {
            AudioChannelLayout layout{};
            layout.mChannelLayoutTag = kAudioChannelLayoutTag_Stereo;
            return give(layout, size, data);
        }
        case kAudioDevicePropertyPreferredChannelsForStereo:
            return give(UInt64{1} | UInt64{2} << 32U, size, data);
        default:
            return kAudioHardwareUnknownPropertyError;
    }
}

OSStatus property(AudioObjectID object, const AudioObjectPropertyAddress* address, UInt32* size,
                  void* data) {
    return object == kAudioObjectSystemObject
               ? systemProperty(address->mSelector, size, data)
               : deviceProperty(address->mSelector, address->mScope, size, data);
}

/// Four printable characters; the ids of units are small numbers.
bool isOfDevice(AudioUnitPropertyID id) {
    return id >= 0x20202020;
}

}  // namespace

OSStatus AudioObjectGetPropertyDataSize(AudioObjectID object,
                                        const AudioObjectPropertyAddress* address,
                                        UInt32 /*qualifierSize*/, const void* /*qualifier*/,
                                        UInt32* size) {
    *size = 0;
    return property(object, address, size, nullptr);
}

OSStatus AudioObjectGetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 /*qualifierSize*/, const void* /*qualifier*/,
                                    UInt32* size, void* data) {
    return property(object, address, size, data);
}

/// Every wish is granted and nothing changes.
OSStatus AudioObjectSetPropertyData(AudioObjectID /*object*/,
                                    const AudioObjectPropertyAddress* /*address*/,
                                    UInt32 /*qualifierSize*/, const void* /*qualifier*/,
                                    UInt32 /*size*/, const void* /*data*/) {
    return noErr;
}

OSStatus AudioObjectIsPropertySettable(AudioObjectID /*object*/,
                                       const AudioObjectPropertyAddress* /*address*/,
                                       Boolean* settable) {
    *settable = 0;
    return noErr;
}

Boolean AudioObjectHasProperty(AudioObjectID object, const AudioObjectPropertyAddress* address) {
    UInt32 size = 0;
    return property(object, address, &size, nullptr) == noErr;
}

OSStatus AudioObjectAddPropertyListener(AudioObjectID /*object*/,
                                        const AudioObjectPropertyAddress* /*address*/,
                                        AudioObjectPropertyListenerProc /*listener*/,
                                        void* /*data*/) {
    return noErr;
}

OSStatus AudioObjectRemovePropertyListener(AudioObjectID /*object*/,
                                           const AudioObjectPropertyAddress* /*address*/,
                                           AudioObjectPropertyListenerProc /*listener*/,
                                           void* /*data*/) {
    return noErr;
}

OSStatus desktopGetProperty(AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope,
                            AudioUnitElement element, void* data, UInt32* size) {
    if (id == kAudioOutputUnitProperty_CurrentDevice) {
        return give(AudioDeviceID{kDesktopDevice}, size, data);
    }
    if (isOfDevice(id)) {
        return deviceProperty(id, kAudioObjectPropertyScopeOutput, size, data);
    }
    return AudioUnitGetProperty(unit, id, scope, element, data, size);
}

OSStatus desktopSetProperty(AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope,
                            AudioUnitElement element, const void* data, UInt32 size) {
    if (id == kAudioOutputUnitProperty_CurrentDevice || id == kAudioUnitProperty_RenderQuality ||
        isOfDevice(id)) {
        return noErr;
    }
    return AudioUnitSetProperty(unit, id, scope, element, data, size);
}
