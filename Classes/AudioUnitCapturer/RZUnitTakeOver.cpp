#include "RZUnitTakeOver.h"

#include "RZHookSet.h"
#include "RZStreamMixManager.h"
#include "TQAudioCaptureBase.h"

namespace {

OSStatus setCallback(AudioUnit unit, AudioUnitScope scope, const AURenderCallbackStruct& callback) {
    const RZOwnCalls own;
    return AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, scope, 0, &callback,
                                sizeof(callback));
}

AURenderCallbackStruct oursFor(AudioUnit unit) {
    return {RZReplayAudioUnitCapture_InputProcessCallback, unit};
}

/// Something that ours does not stand before feeds the unit now: it is captured by the notify, like
/// any unit without a callback.
void captureByNotify(AudioUnit unit) {
    RZStreamMixManager& manager = *RZStreamMixManager::sharedManager();
    const auto obj = manager.findAudioUnitObj(unit);
    if (obj && obj->origin_inputProc() != nullptr) {
        obj->setOriginCallback({});
        manager.audioUnitSourceChanged(obj, RZUnitHooks.isRecording());
    }
}

}  // namespace

bool RZIsOutputUnit(AudioUnit unit) {
    AudioComponentDescription desc{};
    const AudioComponent component = AudioComponentInstanceGetComponent(unit);
    return component != nullptr && AudioComponentGetDescription(component, &desc) == 0 &&
           desc.componentType == kAudioUnitType_Output;
}

void RZUnitTakeOver::begin(const std::shared_ptr<RZReplayAudioUnitObject>& obj,
                           AudioUnitScope scope, const AURenderCallbackStruct& callback) {
    const AudioUnit unit = obj->inUnit();
    noted_ = RZHostCallbacks::shared().of(unit);
    before_ = obj->originCallback();
    RZHostCallbacks::shared().note(unit, {callback, scope, true});
    obj_ = obj;
    unitsBefore_ = obj->unitsCallback();
    // Before ours can be called.
    obj_->setOriginCallback(callback);
}

void RZUnitTakeOver::end(OSStatus status) {
    if (status != 0) {
        obj_->setOriginCallback(before_);
        obj_->setUnitsCallback(unitsBefore_);
        RZHostCallbacks::shared().note(obj_->inUnit(), noted_);
        return;
    }
    if (before_.inputProc == nullptr && obj_->isStarted()) {
        // It played without a callback and was captured by the notify, which would go on to record
        // every block a second time.
        RZStreamMixManager::sharedManager()->audioUnitUpdate(obj_);
    }
}

void RZNoteUnitSource(AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope,
                      AudioUnitElement element, const void* data) {
    RZHostCallback now;
    now.place = scope;
    now.isForeign = true;
    bool isConnected = false;
    if (id == kAudioUnitProperty_SetRenderCallback && element == 0) {
        if (data != nullptr) {
            now.callback = *static_cast<const AURenderCallbackStruct*>(data);
        }
        if (now.callback.inputProc == RZReplayAudioUnitCapture_InputProcessCallback) {
            return;
        }
    } else if (id == kAudioUnitProperty_MakeConnection) {
        isConnected = data != nullptr &&
                      static_cast<const AudioUnitConnection*>(data)->sourceAudioUnit != nullptr;
        const UInt32 input = data == nullptr
                                 ? element
                                 : static_cast<const AudioUnitConnection*>(data)->destInputNumber;
        if (input != 0) {
            return;
        }
    } else {
        return;
    }
    if (!RZIsOutputUnit(unit)) {
        return;
    }
    RZHostCallbacks::shared().note(unit, now);
    // What ours stood before stays known when there is nothing in its place.
    if (isConnected || now.callback.inputProc != nullptr) {
        captureByNotify(unit);
    }
}

void RZTakeOverUnit(const std::shared_ptr<RZReplayAudioUnitObject>& obj) {
    const AudioUnit unit = obj->inUnit();
    const RZHostCallback host = RZHostCallbacks::shared().of(unit);
    if (host.callback.inputProc == nullptr) {
        return;
    }
    if (host.isOurs) {
        obj->setOriginCallback(host.callback);
        return;
    }
    if (host.place != kAudioUnitScope_Global && host.place != kAudioUnitScope_Input) {
        return;
    }
    RZUnitTakeOver change;
    change.begin(obj, host.place, host.callback);
    change.end(setCallback(unit, host.place, oursFor(unit)));
}

void RZGiveBackUnit(AudioUnit unit) {
    RZHostCallback host = RZHostCallbacks::shared().of(unit);
    if (!host.isOurs || setCallback(unit, host.place, host.callback) != 0) {
        return;
    }
    host.isOurs = false;
    host.isForeign = true;
    RZHostCallbacks::shared().note(unit, host);
}
