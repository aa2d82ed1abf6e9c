#include "RZReplayAudioUnitCapturer.h"

#include <AudioToolbox/AudioToolbox.h>
#include <Foundation/Foundation.h>
#include <audio_hook_config.h>
#include <bus_guard.h>

#include <optional>
#include <utility>

#include "RZBoundary.h"
#include "RZHookSet.h"
#include "RZHostCallbacks.h"
#include "RZLogSite.h"
#include "RZStreamMixManager.h"
#include "RZUnitFacts.h"
#include "RZUnitFormatChange.h"
#include "RZUnitTakeOver.h"
#include "TQAudioCaptureBase.h"
#include "TQAudioUnitRecordResolveManager.h"
#include "hook/Hook.h"

namespace {

constexpr const char* kFile = "Classes/AudioUnitCapturer/RZReplayAudioUnitCapturer";

/// Where the replacement of a function logs from.
template <auto* kFunction>
constexpr RZLogSite kSiteOf(kFile, tqhook::kNameOf<kFunction, "Record_unit_">.data());

RZStreamMixManager& manager() {
    return *RZStreamMixManager::sharedManager();
}

/// The kernel keeps this many characters of a thread's name; a program in C has no other name.
constexpr std::size_t kKernelNameLength = 15;

/// Whether a thread's name is what the kernel left of `whole`.
bool isCutFrom(const std::string& name, std::string_view whole) {
    return name.size() == kKernelNameLength && whole.starts_with(name);
}

/// A unit that a real-time communication engine makes on its own thread goes to the companion and
/// gets no capture object. True when it was such a unit.
bool registerCommunicationUnit(const RZLogSite& site, AudioUnit unit) {
    const std::string thread = NSThread::currentThreadName();
    if (thread == "AgoraServiceThread" || isCutFrom(thread, "AgoraServiceThread")) {
        site.log(2, "[AudioUnitHook] audio unit is agora audio unit: %p", unit);
    } else if (thread == "VeqDeviceThread" ||
               thread.find("MWAudioDeviceThread") != std::string::npos ||
               isCutFrom(thread, "MWAudioDeviceThread")) {
        // The first by its whole name, the second wherever it stands in one.
        site.log(2, "[AudioUnitHook] audio unit is rtc audio unit: %p", unit);
    } else {
        return false;
    }
    TQAudioUnitRecordResolveManager::sharedManager().registerRTCUsedAudioUnit(unit);
    // The companion forgets it when it is uninitialised, and it may be started again after that.
    RZHostCallbacks::shared().markAlone(unit);
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
    RZHostCallbacks::shared().unitMade(unit);
    RZUnitFacts::shared().made(unit);
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

/// The host's render callback when this call sets one that is to be taken over, else null.
const AURenderCallbackStruct* callbackToTakeOver(AudioUnitPropertyID id, AudioUnitScope scope,
                                                 AudioUnitElement element, const void* data,
                                                 UInt32 size) {
    // The platform refuses what is too short, and must not be given ours in its place.
    if (id != kAudioUnitProperty_SetRenderCallback || element != 0 || data == nullptr ||
        size < sizeof(AURenderCallbackStruct) ||
        (scope != kAudioUnitScope_Global && scope != kAudioUnitScope_Input)) {
        return nullptr;
    }
    const auto* const callback = static_cast<const AURenderCallbackStruct*>(data);
    return callback->inputProc != nullptr &&
                   callback->inputProc != RZReplayAudioUnitCapture_InputProcessCallback
               ? callback
               : nullptr;
}

/// Keeps the host's callback when ours is to be set in its place; true then.
bool takeOverCallback(const RZLogSite& site, RZUnitTakeOver& change, AudioUnit unit,
                      AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
                      const void* data, UInt32 size) {
    site.log(2, "[AudioUnitHook] AudioUnitSetProperty: %p, %d, %d, %d", unit, id, scope, element);
    const auto obj = manager().findAudioUnitObj(unit);
    const AURenderCallbackStruct* const callback =
        obj ? callbackToTakeOver(id, scope, element, data, size) : nullptr;
    if (callback == nullptr) {
        return false;
    }
    change.begin(obj, scope, *callback);
    site.log(1, "[AudioUnitHook] RZReplay override callback struct, origin refcon:%p, after:%p",
             callback->inputProcRefCon, unit);
    return true;
}

/// A unit that starts without a capture object may get one now: a number has become free, it was
/// uninitialised meanwhile, or it is older than the library. Null for those that are never
/// captured.
std::shared_ptr<RZReplayAudioUnitObject> adoptUnit(const RZLogSite& site, AudioUnit unit) {
    const auto& resolver = TQAudioUnitRecordResolveManager::sharedManager();
    if (resolver.existAudioUnit(unit) || RZHostCallbacks::shared().isAlone(unit) ||
        !RZIsOutputUnit(unit)) {
        return nullptr;
    }
    if (!RZHostCallbacks::shared().isKnown(unit) && registerCommunicationUnit(site, unit)) {
        return nullptr;
    }
    auto obj = manager().newAudioUnitObj(unit);
    if (obj && !RZHostCallbacks::shared().isNodes(unit)) {
        RZTakeOverUnit(obj);
    }
    return obj;
}

/// The library's own share of AudioOutputUnitStart, AudioOutputUnitStop and AudioUnitUninitialize,
/// which comes before the platform's.
template <auto* kFunction, class Share>
constexpr auto hookBefore(Share /*share*/) {
    return tqhook::hook<kFunction>([](auto* original, AudioUnit unit) {
        constexpr const RZLogSite& site = kSiteOf<kFunction>;
        if (RZUnitHooks.isRecording()) {
            RZRoadGuarded(site, [&] { Share{}(site, unit); });
        }
        return original(unit);
    });
}

// In the order in which they are redirected.
constexpr tqhook::HookTable kHooks{
    hookBefore<&AudioUnitUninitialize>([](const RZLogSite& site, AudioUnit unit) {
        site.log(2, "[AudioUnitHook] AudioUnitUninitialize: %p", unit);
        const auto obj = manager().findAudioUnitObj(unit);
        RZHostCallbacks& known = RZHostCallbacks::shared();
        if (known.isNodes(unit)) {
            // Ours stays: what feeds the node is the graph's doing. From now on the graph is not
            // edited for this unit either, because an edit would initialise it again.
            known.note(unit, known.of(unit));
        } else {
            RZGiveBackUnit(unit);
        }
        if (obj) {
            manager().disposeAudioUnitObj(obj);
        } else {
            // It may have gone to the companion when it was made.
            TQAudioUnitRecordResolveManager::sharedManager().unregisterRTCUsedAudioUnit(unit);
            RZUnitFacts::shared().disposed(unit);
        }
    }),
    hookBefore<&AudioOutputUnitStart>([](const RZLogSite& site, AudioUnit unit) {
        site.log(2, "[AudioUnitHook] AudioOutputUnitStart: %p", unit);
        // The registry learns of it before the unit runs.
        auto obj = manager().findAudioUnitObj(unit);
        if (!obj) {
            obj = adoptUnit(site, unit);
        }
        if (obj) {
            manager().audioUnitStart(obj);
        } else {
            site.log(3, "[AudioUnitHook] Ignore audio unit start, not found in unitMap: %p", unit);
            RZUnitFacts::shared().startedAlone(unit, nullptr);
        }
    }),
    hookBefore<&AudioOutputUnitStop>([](const RZLogSite& site, AudioUnit unit) {
        site.log(2, "[AudioUnitHook] AudioOutputUnitStop:%p, ", unit);
        if (const auto obj = manager().findAudioUnitObj(unit)) {
            manager().audioUnitStop(obj);
        } else {
            site.log(3, "[AudioUnitHook] Ignore audio unit stop, not found in unitMap: %p", unit);
            RZUnitFacts::shared().stopped(unit);
        }
    }),
    tqhook::hook<&AudioUnitSetProperty>([](auto* original, AudioUnit unit, AudioUnitPropertyID id,
                                           AudioUnitScope scope, AudioUnitElement element,
                                           const void* data, UInt32 size) {
        constexpr const RZLogSite& site = kSiteOf<&AudioUnitSetProperty>;
        RZUnitTakeOver change;
        bool isTakenOver = false;
        if (RZUnitHooks.isRecording()) {
            RZRoadGuarded(site, [&] {
                isTakenOver = takeOverCallback(site, change, unit, id, scope, element, data, size);
            });
        }
        if (isTakenOver) {
            const AURenderCallbackStruct ours{RZReplayAudioUnitCapture_InputProcessCallback, unit};
            const OSStatus status = original(unit, id, scope, element, &ours, sizeof(ours));
            RZRoadGuarded(site, [&] { change.end(status); });
            return status;
        }
        std::optional<RZUnitFormatChange> reformatted;
        RZRoadGuarded(site, [&] {
            if (auto obj = RZUnitToReformat(unit, id, scope, element, data, size)) {
                reformatted.emplace(std::move(obj));
            }
        });
        const OSStatus status = original(unit, id, scope, element, data, size);
        if (reformatted && status == 0) {
            RZRoadGuarded(site, [&] { manager().audioUnitFormatChanged(reformatted->object()); });
        } else if (reformatted) {
            reformatted->takeBack();
        }
        // Also while calls pass through: what the host set must not be put back over it later.
        if (status == 0 && !RZOwnCalls::isActive()) {
            RZRoadGuarded(site, [&] { RZNoteUnitSource(unit, id, scope, element, data); });
        }
        return status;
    }),
    tqhook::hook<&AudioComponentInstanceNew>(
        [](auto* original, AudioComponent component, AudioComponentInstance* outInstance) {
            constexpr const RZLogSite& site = kSiteOf<&AudioComponentInstanceNew>;
            if (!RZUnitHooks.isRecording()) {
                return original(component, outInstance);
            }
            RZRoadGuarded(site, [&] {
                site.log(2, "[AudioUnitHook] AudioComponentInstanceNew: %p, %p", component,
                         outInstance);
            });
            const OSStatus result = original(component, outInstance);
            RZRoadGuarded(site, [&] { recordNewInstance(site, component, outInstance); });
            return result;
        }),
};

std::span<const TQRebinding> rows() {
    static const auto all = kHooks.rows<TQRebinding>();
    return all;
}

[[gnu::constructor]] void load() {
    RZGuarded(RZLogSite(kFile, "+[RZReplayAudioUnitCapturer load]"), [] {
        RZReplayAudioUnitCapture_initHookConfig();
        if (korva_audio_utils::AudioHookConfig::getInstance()->isHookEnable()) {
            // All sets at once, so that images are looked through once. The other capturer's
            // constructor starts its sets where this one does not come to it.
            RZHookSet::start(
                {&RZUnitHooks, &RZGraphHooks, &RZInteractionHooks, &RZEditHooks, &RZEndingHooks});
        }
    });
    if (!RZUnitHooks.isStarted()) {
        korva_audio_utils::hooksAreInstalled(false);
    }
    // The program has not set up this thread yet, its signal mask included.
    korva_audio_utils::BusGuard::mayBlockAgain();
}

}  // namespace

constinit RZHookSet RZUnitHooks({"[RZReplay] start AudioUnitCapture", rows, nullptr});

void RZReplayAudioUnitCapturer::startHook() {
    RZGuarded(RZLogSite(kFile, "+[RZReplayAudioUnitCapturer startHook]"),
              [] { RZHookSet::start({&RZUnitHooks}); });
}

BOOL RZReplayAudioUnitCapturer::isHookStarted() {
    return RZUnitHooks.isStarted();
}

void RZReplayAudioUnitCapturer::enableHook(BOOL enable) {
    RZUnitHooks.setRecording(enable);
}
