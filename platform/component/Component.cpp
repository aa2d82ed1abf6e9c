#include "component/Component.h"

#include <iterator>

#include "component/Status.h"
#include "unit/ConverterUnit.h"
#include "unit/IOUnit.h"
#include "unit/MixerUnit.h"

namespace tqplatform {

namespace {

template <class Kind>
std::unique_ptr<Unit> make(const Component& component) {
    return std::make_unique<Kind>(component);
}

constexpr AudioComponentDescription described(OSType type, OSType subType) {
    return {type, subType, kAudioUnitManufacturer_Apple, kAudioComponentFlag_SandboxSafe, 0};
}

constexpr UInt32 kVersion = 0x00010000;

// VoiceProcessingIO has no voice processing here: it is an output unit like RemoteIO that also
// knows the properties of voice units.
const Component kComponents[] = {
    {described(kAudioUnitType_Output, kAudioUnitSubType_RemoteIO), "TQPlatform: RemoteIO", kVersion,
     make<IOUnit>},
    {described(kAudioUnitType_Output, kAudioUnitSubType_VoiceProcessingIO),
     "TQPlatform: VoiceProcessingIO", kVersion, make<IOUnit>},
    {described(kAudioUnitType_Output, kAudioUnitSubType_GenericOutput), "TQPlatform: GenericOutput",
     kVersion, make<GenericOutputUnit>},
    {described(kAudioUnitType_Mixer, kAudioUnitSubType_MultiChannelMixer),
     "TQPlatform: MultiChannelMixer", kVersion, make<MixerUnit>},
    {described(kAudioUnitType_FormatConverter, kAudioUnitSubType_AUConverter),
     "TQPlatform: AUConverter", kVersion, make<ConverterUnit>},
};

bool matches(const AudioComponentDescription& is, const AudioComponentDescription& wanted) {
    const auto fits = [](OSType code, OSType wish) { return wish == 0 || code == wish; };
    return fits(is.componentType, wanted.componentType) &&
           fits(is.componentSubType, wanted.componentSubType) &&
           fits(is.componentManufacturer, wanted.componentManufacturer) &&
           ((is.componentFlags ^ wanted.componentFlags) & wanted.componentFlagsMask) == 0;
}

}  // namespace

const Component* findComponent(AudioComponent handle) noexcept {
    for (const Component& component : kComponents) {
        if (handleOf(component) == handle) {
            return &component;
        }
    }
    return nullptr;
}

AudioComponent handleOf(const Component& component) noexcept {
    // An address that is only ever compared.
    return reinterpret_cast<AudioComponent>(const_cast<Component*>(&component));
}

const Component* nextComponent(const Component* after,
                               const AudioComponentDescription& wanted) noexcept {
    for (const Component* component = after == nullptr ? std::begin(kComponents) : after + 1;
         component != std::end(kComponents); ++component) {
        if (matches(component->description, wanted)) {
            return component;
        }
    }
    return nullptr;
}

OSStatus makeUnit(const Component& component, AudioUnit& unit) {
    unit = static_cast<AudioUnit>(units().add(component.make(component)));
    return okOr(unit != nullptr, kAudioComponentErr_TooManyInstances);
}

}  // namespace tqplatform
