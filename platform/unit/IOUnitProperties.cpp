#include <utility>

#include "component/Component.h"
#include "unit/IOUnit.h"

namespace tqplatform {

struct IOUnit::Properties {
    /// The output is element 0 of the output scope, the input is element 1 of the input scope.
    static OSStatus onEnds(Unit& /*unit*/, PropertyKey key) {
        if (key.scope != kAudioUnitScope_Input && key.scope != kAudioUnitScope_Output) {
            return kAudioUnitErr_InvalidScope;
        }
        const UInt32 element = key.scope == kAudioUnitScope_Input ? kMicrophone : 0;
        return okOr(key.element == element, kAudioUnitErr_InvalidElement);
    }
    static OSStatus onEndsOrGlobal(Unit& unit, PropertyKey key) {
        return key.scope == kAudioUnitScope_Global
                   ? okOr(key.element <= kMicrophone, kAudioUnitErr_InvalidElement)
                   : onEnds(unit, key);
    }
    /// Programs name element 0 or 1 and any scope; there is one input.
    static OSStatus onInput(Unit& /*unit*/, PropertyKey key) {
        return okOr(key.element <= kMicrophone, kAudioUnitErr_InvalidElement);
    }
    /// Voice units are told about element 1 as often as about element 0.
    static OSStatus onWholeUnit(Unit& unit, PropertyKey key) {
        const bool isMicrophone = key.scope == kAudioUnitScope_Global && key.element == kMicrophone;
        return isMicrophone ? OSStatus{noErr} : property::global(unit, key);
    }

    template <std::atomic<UInt32> IOUnit::*Value>
    static OSStatus getSwitch(Unit& unit, PropertyKey /*key*/, void* data) {
        const UInt32 value = (static_cast<IOUnit&>(unit).*Value).load();
        std::memcpy(data, &value, sizeof value);
        return noErr;
    }
    template <std::atomic<UInt32> IOUnit::*Value, UInt32 Most>
    static OSStatus setSwitch(Unit& unit, PropertyKey /*key*/, const void* data, UInt32 /*size*/) {
        UInt32 value = 0;
        std::memcpy(&value, data, sizeof value);
        if (value > Most) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        (static_cast<IOUnit&>(unit).*Value).store(value);
        return noErr;
    }
    /// A number up to `Most` that has no further effect on the plan.
    template <std::atomic<UInt32> IOUnit::*Value, UInt32 Most>
    static constexpr PropertyRow switchRow(AudioUnitPropertyID id) {
        return {.id = id,
                .size = sizeof(UInt32),
                .access = PropertyAccess::readWrite,
                .where = onWholeUnit,
                .get = getSwitch<Value>,
                .set = setSwitch<Value, Most>};
    }
};

const PropertyTable& IOUnit::properties() const {
    static constexpr PropertyRow kRows[] = {
        property::readWrite<&IOUnit::enabled, &IOUnit::writeEnabled>(
            kAudioOutputUnitProperty_EnableIO, Properties::onEnds),
        property::readOnly<&IOUnit::hasIO>(kAudioOutputUnitProperty_HasIO,
                                           Properties::onEndsOrGlobal),
        property::writeOnly<&IOUnit::writeInputCallback, &IOUnit::removeInputCallback>(
            kAudioOutputUnitProperty_SetInputCallback, Properties::onInput),
        property::readOnly<&IOUnit::running>(kAudioOutputUnitProperty_IsRunning, property::global),
        Properties::switchRow<&IOUnit::startsAtZero_, 1>(
            kAudioOutputUnitProperty_StartTimestampsAtZero),
    };
    static constexpr PropertyRow kVoiceRows[] = {
        Properties::switchRow<&IOUnit::bypassesVoice_, 1>(kAUVoiceIOProperty_BypassVoiceProcessing),
        Properties::switchRow<&IOUnit::controlsGain_, 1>(
            kAUVoiceIOProperty_VoiceProcessingEnableAGC),
        Properties::switchRow<&IOUnit::quality_, kBestQuality>(
            kAUVoiceIOProperty_VoiceProcessingQuality),
        Properties::switchRow<&IOUnit::mutes_, 1>(kAUVoiceIOProperty_MuteOutput),
    };
    static const PropertyTable all{kRows, &commonProperties()};
    static const PropertyTable voice{kVoiceRows, &all};
    return component().description.componentSubType == kAudioUnitSubType_VoiceProcessingIO ? voice
                                                                                           : all;
}

UInt32 IOUnit::enabled(PropertyKey key) {
    return (key.element == kMicrophone ? inputEnabled_ : outputEnabled_) ? 1 : 0;
}

OSStatus IOUnit::writeEnabled(PropertyKey key, UInt32 value) {
    if (initialized_) {
        return kAudioUnitErr_Initialized;
    }
    (key.element == kMicrophone ? inputEnabled_ : outputEnabled_) = value != 0;
    return noErr;
}

UInt32 IOUnit::hasIO(PropertyKey key) {
    const UInt32 channels =
        key.element == kMicrophone ? device_.inputChannels() : device_.outputChannels();
    return channels > 0 ? 1 : 0;
}

UInt32 IOUnit::running(PropertyKey /*key*/) {
    return isRunning() ? 1 : 0;
}

OSStatus IOUnit::writeInputCallback(PropertyKey /*key*/, AURenderCallbackStruct callback) {
    return changeInputCallback(callback);
}

OSStatus IOUnit::removeInputCallback(PropertyKey /*key*/) {
    return changeInputCallback({});
}

OSStatus IOUnit::changeInputCallback(AURenderCallbackStruct callback) {
    std::swap(inputCallback_, callback);
    try {
        const OSStatus status = republish();
        if (status != noErr) {
            inputCallback_ = callback;
        }
        return status;
    } catch (...) {
        inputCallback_ = callback;
        throw;
    }
}

}  // namespace tqplatform
