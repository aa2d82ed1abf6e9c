#include "TQAudioUnitRecordResolveManager.h"

#include <Foundation/Foundation.h>

namespace {
/// Before the constructors of the library above, whose locks are taken before this one's.
[[gnu::constructor]] void watchForks() {
    tqcommon::ForkLock::watch();
}
}  // namespace

TQAudioUnitRecordResolveManager& TQAudioUnitRecordResolveManager::sharedManager() {
    static TQAudioUnitRecordResolveManager* const manager = new TQAudioUnitRecordResolveManager;
    return *manager;
}

template <class Handle>
void TQAudioUnitRecordResolveManager::enter(std::set<Handle>& handles, Handle handle,
                                            const char* notification) {
    if (handle == nullptr) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        if (!handles.insert(handle).second) {
            return;
        }
    }
    // Observers ask back whether the handle is known, and may register others.
    NSNotificationCenter::defaultCenter().postNotificationName(
        notification, nullptr,
        {{TQAudioNewRegisteredObject, NSFormat("%p", static_cast<const void*>(handle))}});
}

template <class Handle>
void TQAudioUnitRecordResolveManager::leave(std::set<Handle>& handles, Handle handle) {
    const std::lock_guard lock(mutex_);
    handles.erase(handle);
}

bool TQAudioUnitRecordResolveManager::existAudioUnit(AudioUnit unit) const {
    const std::lock_guard lock(mutex_);
    return rtcUnits_.contains(unit) || nonGameUnits_.contains(unit);
}

bool TQAudioUnitRecordResolveManager::existAuGraph(AUGraph graph) const {
    const std::lock_guard lock(mutex_);
    return nonGameGraphs_.contains(graph);
}

void TQAudioUnitRecordResolveManager::registerRTCUsedAudioUnit(AudioUnit unit) {
    enter(rtcUnits_, unit, TQAudioNewRegisterAudioUnitNotification);
}

void TQAudioUnitRecordResolveManager::unregisterRTCUsedAudioUnit(AudioUnit unit) {
    leave(rtcUnits_, unit);
}

void TQAudioUnitRecordResolveManager::registerNonGameUsedAuGraph(AUGraph graph) {
    enter(nonGameGraphs_, graph, TQAudioNewRegisterAuGraphNotification);
}

void TQAudioUnitRecordResolveManager::unregisterNonGameUsedAuGraph(AUGraph graph) {
    leave(nonGameGraphs_, graph);
}

void TQAudioUnitRecordResolveManager::registerNonGameUsedAudioUnit(AudioUnit unit) {
    enter(nonGameUnits_, unit, TQAudioNewRegisterAudioUnitNotification);
}

void TQAudioUnitRecordResolveManager::unregisterNonGameUsedAudioUnit(AudioUnit unit) {
    leave(nonGameUnits_, unit);
}
