#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include "component/Status.h"
#include "unit/MixerUnit.h"

namespace tqplatform {

namespace {

constexpr AudioUnitParameterID kInputParameters[] = {
    kMultiChannelMixerParam_Volume, kMultiChannelMixerParam_Enable, kMultiChannelMixerParam_Pan};
constexpr AudioUnitParameterID kOutputParameters[] = {kMultiChannelMixerParam_Volume};

constexpr AudioUnitParameterOptions kReadWrite =
    kAudioUnitParameterFlag_IsReadable | kAudioUnitParameterFlag_IsWritable;
constexpr Float32 kMostDecibels = 20;  // a sum of buses may be above full scale

AudioUnitParameterInfo infoOf(std::string_view name, AudioUnitParameterUnit unit, Float32 minimum,
                              Float32 maximum, Float32 initial,
                              AudioUnitParameterOptions flags) noexcept {
    AudioUnitParameterInfo info{};
    name.copy(info.name, sizeof info.name - 1);
    info.unit = unit;
    info.minValue = minimum;
    info.maxValue = maximum;
    info.defaultValue = initial;
    info.flags = flags;
    return info;
}

/// Nothing where the scope has no such parameter.
std::optional<AudioUnitParameterInfo> parameterAt(AudioUnitScope scope,
                                                  AudioUnitParameterID id) noexcept {
    const bool isInput = scope == kAudioUnitScope_Input;
    if (!isInput && scope != kAudioUnitScope_Output) {
        return std::nullopt;
    }
    if (MeterReading::of(id).has_value()) {
        return infoOf("level", kAudioUnitParameterUnit_Decibels, LevelMeter::kSilence,
                      kMostDecibels, LevelMeter::kSilence,
                      AudioUnitParameterOptions{kAudioUnitParameterFlag_IsReadable} |
                          AudioUnitParameterOptions{kAudioUnitParameterFlag_MeterReadOnly});
    }
    if (id == kMultiChannelMixerParam_Volume) {
        return infoOf("volume", kAudioUnitParameterUnit_LinearGain, 0, 1, 1,
                      kReadWrite | kAudioUnitParameterFlag_CanRamp);
    }
    if (isInput && id == kMultiChannelMixerParam_Enable) {
        return infoOf("enable", kAudioUnitParameterUnit_Boolean, 0, 1, 1, kReadWrite);
    }
    if (isInput && id == kMultiChannelMixerParam_Pan) {
        return infoOf("pan", kAudioUnitParameterUnit_Pan, -1, 1, 0,
                      kReadWrite | kAudioUnitParameterFlag_CanRamp);
    }
    return std::nullopt;
}

}  // namespace

struct MixerUnit::Properties {
    static std::span<const AudioUnitParameterID> parametersOf(AudioUnitScope scope) {
        switch (scope) {
            case kAudioUnitScope_Input:
                return kInputParameters;
            case kAudioUnitScope_Output:
                return kOutputParameters;
            default:
                return {};
        }
    }
    static OSStatus onSide(Unit& /*unit*/, PropertyKey key) {
        return okOr(key.scope <= kAudioUnitScope_Output, kAudioUnitErr_InvalidScope);
    }
    /// How many parameters there are differs from scope to scope.
    static void adjustList(Unit& /*unit*/, PropertyKey key, PropertyInfo& info) {
        info.size = static_cast<UInt32>(parametersOf(key.scope).size_bytes());
    }
    static OSStatus getList(Unit& /*unit*/, PropertyKey key, void* data) {
        const auto parameters = parametersOf(key.scope);
        std::copy_n(reinterpret_cast<const std::byte*>(parameters.data()), parameters.size_bytes(),
                    static_cast<std::byte*>(data));
        return noErr;
    }
    /// The element is the parameter's id.
    static OSStatus onParameter(Unit& unit, PropertyKey key) {
        const OSStatus status = onSide(unit, key);
        return status != noErr ? status
                               : okOr(parameterAt(key.scope, key.element).has_value(),
                                      kAudioUnitErr_InvalidParameter);
    }
    static OSStatus getInfo(Unit& /*unit*/, PropertyKey key, void* data) {
        const auto info = parameterAt(key.scope, key.element);
        std::memcpy(data, &*info, sizeof *info);
        return noErr;
    }
    static OSStatus onBus(Unit& unit, PropertyKey key) {
        if (key.scope != kAudioUnitScope_Input && key.scope != kAudioUnitScope_Output) {
            return kAudioUnitErr_InvalidScope;
        }
        const UInt32 count = key.scope == kAudioUnitScope_Input
                                 ? static_cast<MixerUnit&>(unit).inputCount_.load()
                                 : 1;
        return okOr(key.element < count, kAudioUnitErr_InvalidElement);
    }
};

const PropertyTable& MixerUnit::properties() const {
    static constexpr PropertyRow kRows[] = {
        {.id = kAudioUnitProperty_ParameterList,
         .size = 0,
         .access = PropertyAccess::read,
         .where = Properties::onSide,
         .get = Properties::getList,
         .adjust = Properties::adjustList},
        {.id = kAudioUnitProperty_ParameterInfo,
         .size = sizeof(AudioUnitParameterInfo),
         .access = PropertyAccess::read,
         .where = Properties::onParameter,
         .get = Properties::getInfo},
        property::readWrite<&MixerUnit::metering, &MixerUnit::writeMetering>(
            kAudioUnitProperty_MeteringMode, Properties::onBus),
    };
    static const PropertyTable table{kRows, &commonProperties()};
    return table;
}

UInt32 MixerUnit::metering(PropertyKey key) {
    return meterOf(key.scope, key.element).active() != nullptr ? 1 : 0;
}

OSStatus MixerUnit::writeMetering(PropertyKey key, UInt32 value) {
    meterOf(key.scope, key.element).turn(value != 0);
    return noErr;
}

OSStatus MixerUnit::findParameter(AudioUnitParameterID id, AudioUnitScope scope,
                                  AudioUnitElement element, Parameter& parameter) noexcept {
    const bool isInput = scope == kAudioUnitScope_Input;
    if (!isInput && scope != kAudioUnitScope_Output) {
        return kAudioUnitErr_InvalidScope;
    }
    if (!isInput && !parameterAt(scope, id).has_value()) {
        return kAudioUnitErr_InvalidParameter;
    }
    if (element >= (isInput ? inputCount_.load() : 1)) {
        return kAudioUnitErr_InvalidElement;
    }
    if (const auto reading = MeterReading::of(id)) {
        const LevelMeter* const meter = meterOf(scope, element).active();
        parameter = {};
        parameter.reading =
            meter != nullptr ? meter->read(*reading, sliceCount()) : LevelMeter::kSilence;
        return noErr;
    }
    if (!isInput) {
        parameter = {&outputVolume_, 0, 1, &outputRamp_, 0};
        return noErr;
    }
    Levels& levels = levels_[element];
    switch (id) {
        case kMultiChannelMixerParam_Volume:
            parameter = {&levels.volume, 0, 1, &levels.volumeRamp, 0};
            return noErr;
        case kMultiChannelMixerParam_Enable:
            parameter = {&levels.enable, 0, 1, nullptr, 0};
            return noErr;
        case kMultiChannelMixerParam_Pan:
            parameter = {&levels.pan, -1, 1, &levels.panRamp, 0};
            return noErr;
        default:
            return kAudioUnitErr_InvalidParameter;
    }
}

}  // namespace tqplatform
