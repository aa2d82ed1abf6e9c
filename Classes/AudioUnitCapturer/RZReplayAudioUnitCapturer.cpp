#include "RZReplayAudioUnitCapturer.h"

#include <AudioToolbox/AudioToolbox.h>
#include <Foundation/Foundation.h>
#include <audio_hook_config.h>

#include <array>

#include "RZBoundary.h"
#include "RZHookSwitch.h"
#include "RZLogSite.h"
#include "RZStreamMixManager.h"
#include "RZUnitFacts.h"
#include "TQAudioCaptureBase.h"
#include "TQAudioRecordResolver.h"
#include "TQAudioUnitRecordResolveManager.h"

namespace {

constexpr const char* kFile = "Classes/AudioUnitCapturer/RZReplayAudioUnitCapturer";

// Constant-initialised: the rebinding may fill and use them before any constructor has run.
constinit RZHookSwitch hook;

constinit decltype(&AudioUnitUninitialize) platform_AudioUnitUninitialize = nullptr;
constinit decltype(&AudioOutputUnitStart) platform_AudioOutputUnitStart = nullptr;
constinit decltype(&AudioOutputUnitStop) platform_AudioOutputUnitStop = nullptr;
constinit decltype(&AudioUnitSetProperty) platform_AudioUnitSetProperty = nullptr;
constinit decltype(&AudioComponentInstanceNew) platform_AudioComponentInstanceNew = nullptr;

RZStreamMixManager& manager() {
    return *RZStreamMixManager::sharedManager();
}

/// A unit that a real-time communication engine makes on its own thread goes to the companion and
/// gets no capture object. True when it was such a unit.
bool registerCommunicationUnit(const RZLogSite& site, AudioUnit unit) {
    const std::string thread = NSThread::currentThreadName();
    if (thread == "AgoraServiceThread") {
        site.log(2, "[AudioUnitHook] audio unit is agora audio unit: %p", unit);
    } else if (thread == "VeqDeviceThread" ||
               thread.find("MWAudioDeviceThread") != std::string::npos) {
        // The first by its whole name, the second wherever it stands in one.
        site.log(2, "[AudioUnitHook] audio unit is rtc audio unit: %p", unit);
    } else {
        return false;
    }
    TQAudioUnitRecordResolveManager::sharedManager().registerRTCUsedAudioUnit(unit);
    RZUnitFacts::shared().leftAlone(unit, nullptr, RZUnitReason::VoiceEngine);
    return true;
}

/// A new instance of an output component gets its capture object.
void recordNewInstance(const RZLogSite& site, AudioComponent component,
                       const AudioComponentInstance* outInstance) {
    AudioComponentDescription desc{};
    const OSStatus described = AudioComponentGetDescription(component, &desc);
    if (described != 0) {
        site.log(4, "[AudioUnitHook] AudioComponentGetDescription error: %d", described);
        return;
    }
    if (outInstance == nullptr || desc.componentType != kAudioUnitType_Output) {
        return;
    }
    const AudioUnit unit = *outInstance;
    site.log(2, "[AudioUnitHook] catch output audio unit: %p", unit);
    if (registerCommunicationUnit(site, unit)) {
        return;
    }
    if (const auto obj = manager().newAudioUnitObj(unit)) {
        obj->setCompDesc(desc);
        manager().audioUnitStop(obj);
    } else {
        site.log(4, "[AudioUnitHook] Can not obtain new AudioUnitObj.");
    }
}

OSStatus Record_unit_AudioComponentInstanceNew(AudioComponent component,
                                               AudioComponentInstance* outInstance) {
    constexpr RZLogSite site(kFile, "Record_unit_AudioComponentInstanceNew");
    if (!hook.isRecording()) {
        return platform_AudioComponentInstanceNew(component, outInstance);
    }
    RZGuarded(site, [&] {
        site.log(2, "[AudioUnitHook] AudioComponentInstanceNew: %p, %p", component, outInstance);
    });
    const OSStatus result = platform_AudioComponentInstanceNew(component, outInstance);
    RZGuarded(site, [&] { recordNewInstance(site, component, outInstance); });
    return result;
}

/// The host's render callback when this call sets one that is to be taken over, else null.
const AURenderCallbackStruct* callbackToTakeOver(AudioUnitPropertyID id, AudioUnitScope scope,
                                                 AudioUnitElement element, const void* data) {
    if (id != kAudioUnitProperty_SetRenderCallback || element != 0 || data == nullptr ||
        (scope != kAudioUnitScope_Global && scope != kAudioUnitScope_Input)) {
        return nullptr;
    }
    const auto* const callback = static_cast<const AURenderCallbackStruct*>(data);
    return callback->inputProc != nullptr &&
                   callback->inputProc != RZReplayAudioUnitCapture_InputProcessCallback
               ? callback
               : nullptr;
}

/// Keeps the host's callback; true when ours is to be set in its place.
bool takeOverCallback(const RZLogSite& site, AudioUnit unit, AudioUnitPropertyID id,
                      AudioUnitScope scope, AudioUnitElement element, const void* data) {
    site.log(2, "[AudioUnitHook] AudioUnitSetProperty: %p, %d, %d, %d", unit, id, scope, element);
    const auto obj = manager().findAudioUnitObj(unit);
    const AURenderCallbackStruct* const callback =
        obj ? callbackToTakeOver(id, scope, element, data) : nullptr;
    if (callback == nullptr) {
        return false;
    }
    obj->setOriginCallback(*callback);
    site.log(1, "[AudioUnitHook] RZReplay override callback struct, origin refcon:%p, after:%p",
             callback->inputProcRefCon, unit);
    return true;
}

OSStatus Record_unit_AudioUnitSetProperty(AudioUnit unit, AudioUnitPropertyID id,
                                          AudioUnitScope scope, AudioUnitElement element,
                                          const void* data, UInt32 size) {
    constexpr RZLogSite site(kFile, "Record_unit_AudioUnitSetProperty");
    bool isTakenOver = false;
    if (hook.isRecording()) {
        RZGuarded(site,
                  [&] { isTakenOver = takeOverCallback(site, unit, id, scope, element, data); });
    }
    if (!isTakenOver) {
        return platform_AudioUnitSetProperty(unit, id, scope, element, data, size);
    }
    const AURenderCallbackStruct replacement{RZReplayAudioUnitCapture_InputProcessCallback, unit};
    return platform_AudioUnitSetProperty(unit, id, scope, element, &replacement,
                                         sizeof(replacement));
}

OSStatus Record_unit_AudioOutputUnitStart(AudioUnit unit) {
    constexpr RZLogSite site(kFile, "Record_unit_AudioOutputUnitStart");
    if (hook.isRecording()) {
        RZGuarded(site, [&] {
            site.log(2, "[AudioUnitHook] AudioOutputUnitStart: %p", unit);
            // The registry learns of it before the unit runs.
            if (const auto obj = manager().findAudioUnitObj(unit)) {
                manager().audioUnitStart(obj);
            } else {
                site.log(3, "[AudioUnitHook] Ignore audio unit start, not found in unitMap: %p",
                         unit);
            }
        });
    }
    return platform_AudioOutputUnitStart(unit);
}

OSStatus Record_unit_AudioOutputUnitStop(AudioUnit unit) {
    constexpr RZLogSite site(kFile, "Record_unit_AudioOutputUnitStop");
    if (hook.isRecording()) {
        RZGuarded(site, [&] {
            site.log(2, "[AudioUnitHook] AudioOutputUnitStop:%p, ", unit);
            if (const auto obj = manager().findAudioUnitObj(unit)) {
                manager().audioUnitStop(obj);
            } else {
                site.log(3, "[AudioUnitHook] Ignore audio unit stop, not found in unitMap: %p",
                         unit);
            }
        });
    }
    return platform_AudioOutputUnitStop(unit);
}

OSStatus Record_unit_AudioUnitUninitialize(AudioUnit unit) {
    constexpr RZLogSite site(kFile, "Record_unit_AudioUnitUninitialize");
    if (hook.isRecording()) {
        RZGuarded(site, [&] {
            site.log(2, "[AudioUnitHook] AudioUnitUninitialize: %p", unit);
            if (const auto obj = manager().findAudioUnitObj(unit)) {
                manager().disposeAudioUnitObj(obj);
            } else {
                // It may have gone to the companion when it was made.
                TQAudioUnitRecordResolveManager::sharedManager().unregisterRTCUsedAudioUnit(unit);
                RZUnitFacts::shared().disposed(unit);
            }
        });
    }
    return platform_AudioUnitUninitialize(unit);
}

[[gnu::constructor]] void load() {
    RZGuarded(RZLogSite(kFile, "+[RZReplayAudioUnitCapturer load]"), [] {
        RZReplayAudioUnitCapture_initHookConfig();
        if (korva_audio_utils::AudioHookConfig::getInstance()->isHookEnable()) {
            RZReplayAudioUnitCapturer::startHook();
        }
    });
}

}  // namespace

void RZReplayAudioUnitCapturer::startHook() {
    hook.startOnce([](std::atomic<bool>& started) {
        NSLog("[RZReplay] start AudioUnitCapture");
        started = true;
        std::array records{
            rebinding("AudioUnitUninitialize", Record_unit_AudioUnitUninitialize,
                      platform_AudioUnitUninitialize),
            rebinding("AudioOutputUnitStart", Record_unit_AudioOutputUnitStart,
                      platform_AudioOutputUnitStart),
            rebinding("AudioOutputUnitStop", Record_unit_AudioOutputUnitStop,
                      platform_AudioOutputUnitStop),
            rebinding("AudioUnitSetProperty", Record_unit_AudioUnitSetProperty,
                      platform_AudioUnitSetProperty),
            rebinding("AudioComponentInstanceNew", Record_unit_AudioComponentInstanceNew,
                      platform_AudioComponentInstanceNew),
        };
        tqreplay_rebind_symbols(records.data(), records.size());
    });
}

BOOL RZReplayAudioUnitCapturer::isHookStarted() {
    return hook.isStarted();
}

void RZReplayAudioUnitCapturer::enableHook(BOOL enable) {
    hook.setRecording(enable);
}
