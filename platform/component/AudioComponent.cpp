// The C functions of components.

#include "component/Component.h"
#include "component/Guarded.h"
#include "component/Status.h"
#include "foundation/CFObject.h"
#include "unit/Unit.h"

using namespace tqplatform;

extern "C" {

AudioComponent AudioComponentFindNext(AudioComponent inComponent,
                                      const AudioComponentDescription* inDesc) {
    const Component* const after = findComponent(inComponent);
    if (inDesc == nullptr || (inComponent != nullptr && after == nullptr)) {
        return nullptr;
    }
    const Component* const found = nextComponent(after, *inDesc);
    return found != nullptr ? handleOf(*found) : nullptr;
}

UInt32 AudioComponentCount(const AudioComponentDescription* inDesc) {
    UInt32 count = 0;
    if (inDesc != nullptr) {
        for (const Component* found = nextComponent(nullptr, *inDesc); found != nullptr;
             found = nextComponent(found, *inDesc)) {
            ++count;
        }
    }
    return count;
}

OSStatus AudioComponentGetDescription(AudioComponent inComponent,
                                      AudioComponentDescription* outDesc) {
    const Component* const component = findComponent(inComponent);
    if (component == nullptr || outDesc == nullptr) {
        return kAudio_ParamError;
    }
    *outDesc = component->description;
    return noErr;
}

OSStatus AudioComponentCopyName(AudioComponent inComponent, CFStringRef* outName) {
    const Component* const component = findComponent(inComponent);
    if (component == nullptr || outName == nullptr) {
        return kAudio_ParamError;
    }
    *outName = makeCFString(component->name);
    return okOr(*outName != nullptr, kAudio_MemFullError);
}

OSStatus AudioComponentGetVersion(AudioComponent inComponent, UInt32* outVersion) {
    const Component* const component = findComponent(inComponent);
    if (component == nullptr || outVersion == nullptr) {
        return kAudio_ParamError;
    }
    *outVersion = component->version;
    return noErr;
}

OSStatus AudioComponentInstanceNew(AudioComponent inComponent,
                                   AudioComponentInstance* outInstance) {
    const Component* const component = findComponent(inComponent);
    if (component == nullptr || outInstance == nullptr) {
        return kAudio_ParamError;
    }
    *outInstance = nullptr;
    return guarded([&] { return makeUnit(*component, *outInstance); });
}

OSStatus AudioComponentInstanceDispose(AudioComponentInstance inInstance) {
    if (inInstance == nullptr) {
        return kAudio_ParamError;
    }
    return guarded([&] {
        return okOr(units().remove(inInstance, Unit::mayWait()),
                    kAudioComponentErr_InstanceInvalidated);
    });
}

AudioComponent AudioComponentInstanceGetComponent(AudioComponentInstance inInstance) {
    const UnitTable::Access unit(units(), inInstance);
    return unit ? handleOf(unit->component()) : nullptr;
}

}  // extern "C"
