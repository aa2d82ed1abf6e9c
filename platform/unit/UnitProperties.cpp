#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "component/Status.h"
#include "unit/Unit.h"

namespace tqplatform {

namespace {

constexpr UInt32 shortFormatSize = offsetof(AudioStreamBasicDescription, mReserved);
constexpr std::size_t largestProperty = 64;

template <class T>
T valueAt(const void* data) {
    T value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

template <class T>
void put(void* data, const T& value) {
    std::memcpy(data, &value, sizeof value);
}

/// Properties whose value is set without looking at the scope.
bool isScopeIgnored(AudioUnitPropertyID id) {
    return id == kAudioUnitProperty_SetRenderCallback || id == kAudioUnitProperty_MakeConnection;
}

}  // namespace

PCMFormat Unit::parsed(const AudioStreamBasicDescription& format) {
    // Only descriptions that could be parsed ever become the format of a bus.
    return *PCMFormat::parse(format);
}

AudioStreamBasicDescription Unit::busFormat(AudioUnitScope scope, UInt32 element) {
    return (scope == kAudioUnitScope_Input ? inputs_ : outputs_)[element].format;
}

bool Unit::isFormatWritable(AudioUnitScope scope, UInt32 element) {
    return scope != kAudioUnitScope_Input || !inputs_[element].source.isConnection();
}

bool Unit::acceptsFormat(AudioUnitScope /*scope*/, const PCMFormat& /*format*/) {
    return true;
}

OSStatus Unit::setInputCount(UInt32 /*count*/) {
    return kAudioUnitErr_PropertyNotWritable;
}

Unit::Bus* Unit::findBus(AudioUnitScope scope, UInt32 element, OSStatus& status) {
    std::vector<Bus>* buses = nullptr;
    if (scope == kAudioUnitScope_Input) {
        buses = &inputs_;
    } else if (scope == kAudioUnitScope_Output || scope == kAudioUnitScope_Global) {
        buses = &outputs_;
    } else {
        status = kAudioUnitErr_InvalidScope;
        return nullptr;
    }
    if (element >= buses->size()) {
        status = kAudioUnitErr_InvalidElement;
        return nullptr;
    }
    return &(*buses)[element];
}

OSStatus Unit::describeProperty(PropertyKey key, PropertyInfo& info) {
    OSStatus status = noErr;
    switch (key.id) {
        case kAudioUnitProperty_StreamFormat:
        case kAudioUnitProperty_SampleRate: {
            const bool isRate = key.id == kAudioUnitProperty_SampleRate;
            info.size = isRate ? sizeof(Float64) : sizeof(AudioStreamBasicDescription);
            if (findBus(key.scope, key.element, status) != nullptr) {
                info.writable = isFormatWritable(key.scope == kAudioUnitScope_Global
                                                     ? AudioUnitScope{kAudioUnitScope_Output}
                                                     : key.scope,
                                                 key.element);
            }
            return status;
        }
        case kAudioUnitProperty_ShouldAllocateBuffer:
            info = {sizeof(UInt32), true};
            if (key.scope == kAudioUnitScope_Global) {
                return kAudioUnitErr_InvalidScope;
            }
            static_cast<void>(findBus(key.scope, key.element, status));
            return status;
        case kAudioUnitProperty_ElementCount:
            info = {sizeof(UInt32), key.scope == kAudioUnitScope_Input && isInputCountWritable()};
            return okOr(key.scope <= kAudioUnitScope_Output, kAudioUnitErr_InvalidScope);
        case kAudioUnitProperty_SetRenderCallback:
        case kAudioUnitProperty_MakeConnection:
            info = {key.id == kAudioUnitProperty_MakeConnection
                        ? UInt32{sizeof(AudioUnitConnection)}
                        : UInt32{sizeof(AURenderCallbackStruct)},
                    true, false};
            return noErr;
        case kAudioUnitProperty_MaximumFramesPerSlice:
            info = {sizeof(UInt32), true};
            break;
        case kAudioUnitProperty_LastRenderError:
            info = {sizeof(OSStatus), false};
            break;
        case kAudioUnitProperty_CPULoad:
            info = {sizeof(Float32), false};
            break;
        case kAudioUnitProperty_Latency:
        case kAudioUnitProperty_TailTime:
        case kAudioUnitProperty_LastRenderSampleTime:
            info = {sizeof(Float64), false};
            break;
        case kAudioUnitProperty_SupportedNumChannels:
            info = {sizeof(AUChannelInfo), false};
            break;
        default:
            return kAudioUnitErr_InvalidProperty;
    }
    if (key.scope != kAudioUnitScope_Global) {
        return kAudioUnitErr_InvalidScope;
    }
    return okOr(key.element == 0, kAudioUnitErr_InvalidElement);
}

OSStatus Unit::readProperty(PropertyKey key, void* data) {
    const bool isInput = key.scope == kAudioUnitScope_Input;
    const AudioUnitScope side = isInput ? kAudioUnitScope_Input : kAudioUnitScope_Output;
    switch (key.id) {
        case kAudioUnitProperty_StreamFormat:
            put(data, busFormat(side, key.element));
            return noErr;
        case kAudioUnitProperty_SampleRate:
            put(data, busFormat(side, key.element).mSampleRate);
            return noErr;
        case kAudioUnitProperty_ShouldAllocateBuffer:
            put(data, UInt32{(isInput ? inputs_ : outputs_)[key.element].allocate});
            return noErr;
        case kAudioUnitProperty_ElementCount:
            put(data, key.scope == kAudioUnitScope_Global
                          ? UInt32{1}
                          : static_cast<UInt32>((isInput ? inputs_ : outputs_).size()));
            return noErr;
        case kAudioUnitProperty_MaximumFramesPerSlice:
            put(data, maximumFrames_);
            return noErr;
        case kAudioUnitProperty_LastRenderError:
            put(data, lastRenderError_.exchange(noErr));
            return noErr;
        case kAudioUnitProperty_CPULoad:
            put(data, cpuLoad());
            return noErr;
        case kAudioUnitProperty_Latency:
        case kAudioUnitProperty_TailTime:
            put(data, Float64{0});
            return noErr;
        case kAudioUnitProperty_LastRenderSampleTime:
            put(data, lastSampleTime_.load());
            return noErr;
        case kAudioUnitProperty_SupportedNumChannels:
            put(data, AUChannelInfo{-1, -1});  // any to any
            return noErr;
        default:
            return kAudioUnitErr_InvalidProperty;
    }
}

OSStatus Unit::writeProperty(PropertyKey key, const void* data, UInt32 size) {
    switch (key.id) {
        case kAudioUnitProperty_StreamFormat:
            return writeFormat(key, data, size);
        case kAudioUnitProperty_SampleRate:
            return writeSampleRate(key, valueAt<Float64>(data));
        case kAudioUnitProperty_ShouldAllocateBuffer: {
            if (initialized_) {
                return kAudioUnitErr_Initialized;
            }
            auto& buses = key.scope == kAudioUnitScope_Input ? inputs_ : outputs_;
            buses[key.element].allocate = valueAt<UInt32>(data) != 0;
            return noErr;
        }
        case kAudioUnitProperty_ElementCount:
            return setInputCount(valueAt<UInt32>(data));
        case kAudioUnitProperty_SetRenderCallback:
            return writeCallback(key.element, valueAt<AURenderCallbackStruct>(data));
        case kAudioUnitProperty_MaximumFramesPerSlice: {
            if (initialized_) {
                return kAudioUnitErr_Initialized;
            }
            const auto frames = valueAt<UInt32>(data);
            constexpr UInt32 mostFrames = 1U << 20;
            if (frames == 0 || frames > mostFrames) {
                return kAudioUnitErr_InvalidPropertyValue;
            }
            maximumFrames_ = frames;
            return noErr;
        }
        default:
            return kAudioUnitErr_PropertyNotWritable;
    }
}

OSStatus Unit::removeProperty(PropertyKey key) {
    return key.id == kAudioUnitProperty_SetRenderCallback ||
                   key.id == kAudioUnitProperty_MakeConnection
               ? disconnect(key.element)
               : OSStatus{kAudioUnitErr_InvalidPropertyValue};
}

OSStatus Unit::getPropertyInfo(PropertyKey key, UInt32* size, Boolean* writable) {
    const std::lock_guard lock(lock_);
    PropertyInfo info;
    const OSStatus status = describeProperty(key, info);
    if (status == noErr) {
        if (size != nullptr) {
            *size = info.size;
        }
        if (writable != nullptr) {
            *writable = info.writable ? 1 : 0;
        }
    }
    return status;
}

OSStatus Unit::getProperty(PropertyKey key, void* data, UInt32* size) {
    if (size == nullptr || (*size == 0 && data != nullptr)) {
        return kAudio_ParamError;
    }
    const std::lock_guard lock(lock_);
    PropertyInfo info;
    OSStatus status = describeProperty(key, info);
    if (status == noErr && !info.readable) {
        status = kAudioUnitErr_InvalidProperty;
    }
    if (status != noErr) {
        return status;
    }
    if (data == nullptr) {
        *size = info.size;
        return noErr;
    }
    std::array<std::byte, largestProperty> whole{};
    status = readProperty(key, whole.data());
    if (status == noErr) {
        *size = std::min(*size, info.size);
        std::memcpy(data, whole.data(), *size);
    }
    return status;
}

OSStatus Unit::setProperty(PropertyKey key, const void* data, UInt32 size) {
    if ((data == nullptr) != (size == 0)) {
        return kAudio_ParamError;
    }
    // How many frames a slice may have is a matter of the whole unit, whatever bus is named.
    if (key.id == kAudioUnitProperty_MaximumFramesPerSlice) {
        key.scope = kAudioUnitScope_Global;
        key.element = 0;
    }
    if (key.id == kAudioUnitProperty_MakeConnection && data != nullptr) {
        if (size < sizeof(AudioUnitConnection)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        // Asks the source for its format, so it takes this unit's lock by itself.
        const auto connection = valueAt<AudioUnitConnection>(data);
        const OSStatus status = makeConnection(connection);
        if (status == noErr) {
            key.element = connection.destInputNumber;
            tellListeners(key);
        }
        return status;
    }
    {
        const std::lock_guard lock(lock_);
        PropertyInfo info;
        OSStatus status = describeProperty(key, info);
        if (status != noErr) {
            return status;
        }
        if (data == nullptr) {
            status = removeProperty(key);
        } else if (key.id == kAudioUnitProperty_StreamFormat) {
            // Whether it must be writable depends on whether it would change.
            status = writeProperty(key, data, size);
        } else if (!info.writable) {
            status = kAudioUnitErr_PropertyNotWritable;
        } else if (size < info.size) {
            status = kAudioUnitErr_InvalidPropertyValue;
        } else {
            status = writeProperty(key, data, size);
        }
        if (status != noErr) {
            return status;
        }
    }
    tellListeners(key);
    if (!isScopeIgnored(key.id) && key.scope != kAudioUnitScope_Input &&
        (key.id == kAudioUnitProperty_StreamFormat || key.id == kAudioUnitProperty_SampleRate)) {
        tellDependents(key.element);
    }
    return noErr;
}

OSStatus Unit::writeFormat(PropertyKey key, const void* data, UInt32 size) {
    if (size < shortFormatSize) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    AudioStreamBasicDescription format{};
    std::memcpy(&format, data, std::min<std::size_t>(size, sizeof format));
    const AudioUnitScope side = key.scope == kAudioUnitScope_Input
                                    ? AudioUnitScope{kAudioUnitScope_Input}
                                    : AudioUnitScope{kAudioUnitScope_Output};
    return setFormat(side, key.element, format);
}

OSStatus Unit::writeSampleRate(PropertyKey key, Float64 rate) {
    const AudioUnitScope side = key.scope == kAudioUnitScope_Input
                                    ? AudioUnitScope{kAudioUnitScope_Input}
                                    : AudioUnitScope{kAudioUnitScope_Output};
    AudioStreamBasicDescription format = busFormat(side, key.element);
    format.mSampleRate = rate;
    return setFormat(side, key.element, format);
}

OSStatus Unit::setFormat(AudioUnitScope scope, UInt32 element,
                         const AudioStreamBasicDescription& format) {
    const auto wanted = PCMFormat::parse(format);
    if (!wanted) {
        return kAudioUnitErr_FormatNotSupported;
    }
    const AudioStreamBasicDescription current = busFormat(scope, element);
    if (std::memcmp(&current, &format, sizeof format) == 0) {
        return noErr;
    }
    if (!isFormatWritable(scope, element)) {
        // Another way to say the same is no change either.
        return okOr(sameFormat(parsed(current), *wanted), kAudioUnitErr_PropertyNotWritable);
    }
    if (!acceptsFormat(scope, *wanted)) {
        return kAudioUnitErr_FormatNotSupported;
    }
    Bus& bus = (scope == kAudioUnitScope_Input ? inputs_ : outputs_)[element];
    const AudioStreamBasicDescription before = bus.format;
    bus.format = format;
    try {
        const OSStatus status = republish();
        if (status != noErr) {
            bus.format = before;
        }
        return status;
    } catch (...) {
        bus.format = before;
        throw;
    }
}

OSStatus Unit::writeCallback(UInt32 element, const AURenderCallbackStruct& callback) {
    if (element >= feedableInputs()) {
        return kAudioUnitErr_InvalidElement;
    }
    InputSource source;
    if (callback.inputProc != nullptr) {
        source.callback = callback;
    }
    return feed(element, inputs_[element].format, source);
}

OSStatus Unit::disconnect(UInt32 element) {
    if (element >= feedableInputs()) {
        return kAudioUnitErr_InvalidElement;
    }
    return feed(element, inputs_[element].format, {});
}

OSStatus Unit::feed(UInt32 element, const AudioStreamBasicDescription& format,
                    const InputSource& source) {
    const Bus before = inputs_[element];
    inputs_[element].format = format;
    inputs_[element].source = source;
    try {
        const OSStatus status = republish();
        if (status != noErr) {
            inputs_[element] = before;
        }
        return status;
    } catch (...) {
        inputs_[element] = before;
        throw;
    }
}

OSStatus Unit::makeConnection(const AudioUnitConnection& connection) {
    if (connection.sourceAudioUnit == nullptr) {
        const std::lock_guard lock(lock_);
        return disconnect(connection.destInputNumber);
    }
    const UnitTable::Access source(units(), connection.sourceAudioUnit);
    if (!source) {
        return kAudioComponentErr_InstanceInvalidated;
    }
    // From another bus to itself is how a unit plays its own microphone.
    if (source.get() == this && connection.sourceOutputNumber == 0) {
        return kAudio_ParamError;
    }
    AudioStreamBasicDescription format{};
    OSStatus status = source->outputFormat(connection.sourceOutputNumber, format);
    if (status != noErr) {
        return status;
    }
    {
        const std::lock_guard lock(lock_);
        const UInt32 input = connection.destInputNumber;
        if (input >= feedableInputs()) {
            return kAudioUnitErr_InvalidElement;
        }
        const auto wanted = PCMFormat::parse(format);
        if (!wanted || !acceptsFormat(kAudioUnitScope_Input, *wanted)) {
            return kAudioUnitErr_FormatNotSupported;
        }
        status =
            feed(input, format, {{}, connection.sourceAudioUnit, connection.sourceOutputNumber});
    }
    if (status == noErr) {
        source->addDependent({handle_, connection.sourceOutputNumber, connection.destInputNumber});
    }
    return status;
}

}  // namespace tqplatform
