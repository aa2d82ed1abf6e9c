#include <algorithm>
#include <cstring>
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

    /// Programs name any side of an element; each has one way through the unit.
    static OSStatus onElement(Unit& /*unit*/, PropertyKey key) {
        if (key.scope > kAudioUnitScope_Output) {
            return kAudioUnitErr_InvalidScope;
        }
        return okOr(key.element <= kMicrophone, kAudioUnitErr_InvalidElement);
    }
    static void adjustMap(Unit& unit, PropertyKey key, PropertyInfo& info) {
        const UInt32 channels = static_cast<IOUnit&>(unit).mappedChannels(key.element).second;
        info.size = channels * UInt32{sizeof(SInt32)};
    }
    static OSStatus getMap(Unit& unit, PropertyKey key, void* data) {
        auto& self = static_cast<IOUnit&>(unit);
        const auto [from, to] = self.mappedChannels(key.element);
        ChannelMap map = self.channelMaps_[key.element];
        if (map.empty()) {
            map = usualMap(from, to);
        }
        map.resize(to, -1);
        std::memcpy(data, map.data(), map.size() * sizeof map[0]);
        return noErr;
    }
    static OSStatus setMap(Unit& unit, PropertyKey key, const void* data, UInt32 size) {
        return static_cast<IOUnit&>(unit).writeChannelMap(key, data, size);
    }
    /// Checks itself: a map may be shorter or longer than there are channels.
    static constexpr PropertyRow mapRow() {
        return {.id = kAudioOutputUnitProperty_ChannelMap,
                .size = 0,
                .access = PropertyAccess::readWrite,
                .where = onElement,
                .get = getMap,
                .set = setMap,
                .remove = property::remove<&IOUnit::removeChannelMap>,
                .adjust = adjustMap,
                .checksItself = true};
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
        Properties::mapRow(),
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
        key.element == kMicrophone ? knownDevice().inputChannels() : device_.outputChannels();
    return channels > 0 ? 1 : 0;
}

UInt32 IOUnit::running(PropertyKey /*key*/) {
    return isRunning() ? 1 : 0;
}

std::pair<UInt32, UInt32> IOUnit::mappedChannels(UInt32 element) {
    return {busFormat(kAudioUnitScope_Input, element).mChannelsPerFrame,
            busFormat(kAudioUnitScope_Output, element).mChannelsPerFrame};
}

OSStatus IOUnit::writeChannelMap(PropertyKey key, const void* data, UInt32 size) {
    if (size % sizeof(SInt32) != 0 || size > kMaximumChannels * sizeof(SInt32)) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    ChannelMap map(size / sizeof(SInt32));
    std::memcpy(map.data(), data, size);
    if (std::any_of(map.begin(), map.end(), [](SInt32 channel) { return channel < -1; })) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    return changeChannelMap(key.element, std::move(map));
}

OSStatus IOUnit::removeChannelMap(PropertyKey key) {
    return changeChannelMap(key.element, {});
}

OSStatus IOUnit::changeChannelMap(UInt32 element, ChannelMap map) {
    std::swap(channelMaps_[element], map);
    try {
        const OSStatus status = republish();
        if (status != noErr) {
            channelMaps_[element].swap(map);
        }
        return status;
    } catch (...) {
        channelMaps_[element].swap(map);
        throw;
    }
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
