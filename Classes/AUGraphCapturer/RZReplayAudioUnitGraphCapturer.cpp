#include "RZReplayAudioUnitGraphCapturer.h"

#include <AudioToolbox/AudioToolbox.h>
#include <Foundation/Foundation.h>
#include <audio_hook_config.h>
#include <bus_guard.h>
#include <optional>

#include "PendingNodes.h"
#include "RZBoundary.h"
#include "RZGraphTakeOver.h"
#include "RZGraphUpdate.h"
#include "RZHookSet.h"
#include "RZHostCallbacks.h"
#include "RZInteractionList.h"
#include "RZLogSite.h"
#include "RZStreamMixManager.h"
#include "RZUnitFacts.h"
#include "TQAudioCaptureBase.h"
#include "TQAudioUnitRecordResolveManager.h"
#include "TQHookSelfTest.h"
#include "hook/Hook.h"

namespace {

constexpr const char* kFile = "Classes/AUGraphCapturer/RZReplayAudioUnitGraphCapturer";

/// Where the replacement of a function logs from.
template <auto* kFunction>
constexpr RZLogSite kSiteOf(kFile, tqhook::kNameOf<kFunction, "Record_graph_">.data());

RZStreamMixManager& manager() {
    return *RZStreamMixManager::sharedManager();
}

/// NO when the companion handles the graph already.
BOOL isAUGraphAvailable(AUGraph graph) {
    return !TQAudioUnitRecordResolveManager::sharedManager().existAuGraph(graph);
}

/// A call that the platform has answered, as the log records name it.
struct AnsweredCall {
    const RZLogSite& site;
    const char* name;
    OSStatus status;

    /// For a graph without a capture object that could be told of `action`.
    void logIgnored(int level, const char* action, AUGraph graph, const void* object) const {
        site.log(level, "[AUGraphHook] Ignore audio unit %s with %s: %p, unitObj: %p, err: %d",
                 action, name, graph, object, status);
    }
};

/// The library's own share of a graph function, which comes after the platform's. Whether it comes
/// is decided before: the switch may turn while the platform is at work.
template <auto* kFunction, class Share>
constexpr auto hookAfter(Share /*share*/) {
    return tqhook::hook<kFunction>([](auto* original, auto... arguments) {
        constexpr const RZLogSite& site = kSiteOf<kFunction>;
        const BOOL isRecording = RZGraphHooks.isRecording();
        const OSStatus status = original(arguments...);
        if (isRecording) {
            const AnsweredCall call{site, tqhook::kNameOf<kFunction>.data(), status};
            RZRoadGuarded(site, [&] { Share{}(call, arguments...); });
        }
        return status;
    });
}

/// The graph is closed or gone: so is its capture.
void disposeCapture(const AnsweredCall& call, AUGraph graph) {
    call.site.log(2, "[AUGraphHook] %s: %p, err: %d", call.name, graph, call.status);
    if (const auto obj = manager().findAudioUnitObjByAUGraph(graph)) {
        manager().disposeAudioUnitObj(obj);
    } else {
        call.logIgnored(3, "stop", graph, nullptr);
    }
}

/// The graph has units now, if it had none before: the output node's is captured.
void noteOpen(const AnsweredCall& call, AUGraph graph, bool isFresh) {
    call.site.log(2, "[AUGraphHook] %s: %p, err: %d", call.name, graph, call.status);
    if (!isAUGraphAvailable(graph) || call.status != 0) {
        // Registered with its output node in it already: nothing else tells of it.
        if (call.status == 0 && PendingNodes::shared().with(graph, [](const auto&) {})) {
            RZUnitFacts::shared().leftAlone(nullptr, graph, RZUnitReason::Anothers);
        }
        return;
    }
    std::optional<PendingNodeInfo> info;
    if (PendingNodes::shared().with(graph, [&](const auto& found) { info = found; })) {
        // Behind the lock, which is taken inside those that this takes.
        RZCaptureNode(call.site, graph, *info, isFresh);
    } else {
        call.site.log(3, "[AUGraphHook] No valid node in AUGraph: %p error:%d", graph, 0);
    }
}

/// The graph runs, unless the platform refused: so does its capture.
void noteStart(const AnsweredCall& call, AUGraph graph) {
    call.site.log(2, "[AUGraphHook] %s: %p, err:%d", call.name, graph, call.status);
    if (!isAUGraphAvailable(graph)) {
        call.site.log(3, "[AUGraphHook] Ignore AUGraph start because in resolver: %p", graph);
        if (call.status == 0 && graph != manager().mGraph()) {
            RZUnitFacts::shared().startedAlone(nullptr, graph);
        }
        return;
    }
    const auto obj = manager().findAudioUnitObjByAUGraph(graph);
    if (obj && call.status == 0) {
        manager().audioUnitStart(obj);
    } else {
        call.logIgnored(4, "start", graph, obj.get());
        if (!obj && call.status == 0) {
            RZUnitFacts::shared().startedAlone(nullptr, graph);
        }
    }
}

/// The graph is made of what was edited: its unit may have another format.
void noteUpdate(const AnsweredCall& call, AUGraph graph) {
    call.site.log(2, "[AUGraphHook] %s: %p", call.name, graph);
    if (call.status != 0) {
        return;
    }
    if (const auto obj = manager().findAudioUnitObjByAUGraph(graph)) {
        manager().audioUnitUpdate(obj);
    } else {
        call.logIgnored(4, "update", graph, nullptr);
    }
}

// In the order in which they are redirected.
constexpr tqhook::HookTable kHooks{
    tqhook::hook<&NewAUGraph>([](auto* original, AUGraph* outGraph) {
        // Told whatever the switch says: the self-test must see its graph.
        const OSStatus status = original(outGraph);
        if (outGraph != nullptr) {
            RZRoadGuarded(kSiteOf<&NewAUGraph>, [&] {
                // Another graph may have had the handle.
                PendingNodes::shared().forget(*outGraph);
                RZHostCallbacks::shared().graphMade(*outGraph);
            });
            TQHookSelfTest::notifyNewAUGraph(*outGraph);
        }
        return status;
    }),
    tqhook::hook<&AUGraphSetNodeInputCallback>([](auto* original, AUGraph graph, AUNode node,
                                                  UInt32 inputNumber,
                                                  const AURenderCallbackStruct* callback) {
        constexpr const RZLogSite& site = kSiteOf<&AUGraphSetNodeInputCallback>;
        if (!RZGraphHooks.isRecording()) {
            return original(graph, node, inputNumber, callback);
        }
        const AURenderCallbackStruct ours{RZReplayAudioUnitCapture_InputProcessCallback, graph};
        RZInteractionList before;
        RZRoadGuarded(site, [&] { before = RZInteractionList::of(graph); });
        RZNodeTakeOver change;
        bool isTakenOver = false;
        // Ours, read back from the graph and set again, would call itself for ever.
        if (callback != nullptr &&
            callback->inputProc != RZReplayAudioUnitCapture_InputProcessCallback) {
            RZRoadGuarded(site,
                          [&] { isTakenOver = change.begin(graph, node, inputNumber, *callback); });
        }
        const OSStatus status = original(graph, node, inputNumber, isTakenOver ? &ours : callback);
        RZRoadGuarded(site, [&] {
            change.end(status);
            // Without a procedure it is an edit where something stood; the same one again always
            // is.
            const bool isGiven = callback != nullptr && callback->inputProc != nullptr;
            if ((status == 0 && isGiven) || before.isEdited(graph, status)) {
                RZSettleEdit(graph);
            }
            site.log(2, "[AUGraphHook] AUGraphSetNodeInputCallback: %p, %d, %d, %p, err:%d", graph,
                     node, inputNumber, callback, status);
        });
        return status;
    }),
    hookAfter<&AUGraphAddNode>([](const AnsweredCall& call, AUGraph graph,
                                  const AudioComponentDescription* desc, const AUNode* outNode) {
        const AUNode node = outNode == nullptr ? -1 : *outNode;
        call.site.log(2, "[AUGraphHook] %s: %p, %d, err: %d", call.name, graph, node, call.status);
        if (call.status != 0 || desc == nullptr || desc->componentType != kAudioUnitType_Output) {
            return;
        }
        if (isAUGraphAvailable(graph)) {
            call.site.log(2, "[AUGraphHook] Catch Node when Added: %p, %d", graph, node);
            const PendingNodeInfo info{node, *desc, nullptr, nullptr};
            PendingNodes::shared().set(graph, info);
            Boolean isOpen = 0;
            if (AUGraphIsOpen(graph, &isOpen) == 0 && isOpen != 0) {
                // No opening will tell of this node any more: its unit is there already.
                RZCaptureNode(call.site, graph, info, true);
            }
        } else {
            call.site.log(3, "[AUGraphHook] AUGraph exists in Resolver, ignore AUGraph: %p, %d",
                          graph, node);
            if (graph != manager().mGraph()) {
                RZUnitFacts::shared().leftAlone(nullptr, graph, RZUnitReason::Anothers);
            }
        }
    }),
    tqhook::hook<&AUGraphRemoveNode>([](auto* original, AUGraph graph, AUNode node) {
        if (!RZGraphHooks.isRecording()) {
            return original(graph, node);
        }
        constexpr const RZLogSite& site = kSiteOf<&AUGraphRemoveNode>;
        bool hasFed = false;
        RZRoadGuarded(site, [&] { hasFed = RZInteractionList::of(graph).feedsAnother(node); });
        const OSStatus status = original(graph, node);
        RZRoadGuarded(site, [&] {
            site.log(2,
                     "[AUGraphHook] %s: %p, %d, err: ", tqhook::kNameOf<&AUGraphRemoveNode>.data(),
                     graph, node);
            if (status == 0) {
                PendingNodes::shared().erase(graph, node);
                if (hasFed) {
                    RZSettleEdit(graph);  // the other node was disconnected from it
                }
            }
        });
        return status;
    }),
    tqhook::hook<&AUGraphOpen>([](auto* original, AUGraph graph) {
        constexpr const RZLogSite& site = kSiteOf<&AUGraphOpen>;
        const BOOL isRecording = RZGraphHooks.isRecording();
        Boolean wasOpen = 0;
        if (isRecording) {
            static_cast<void>(AUGraphIsOpen(graph, &wasOpen));
        }
        const OSStatus status = original(graph);
        if (isRecording) {
            RZRoadGuarded(site, [&] {
                noteOpen({site, tqhook::kNameOf<&AUGraphOpen>.data(), status}, graph, wasOpen == 0);
            });
        }
        return status;
    }),
    tqhook::hook<&AUGraphStart>([](auto* original, AUGraph graph) {
        constexpr const RZLogSite& site = kSiteOf<&AUGraphStart>;
        const BOOL isRecording = RZGraphHooks.isRecording();
        RZGraphUpdate update;
        RZRoadGuarded(site, [&] {
            if (isAUGraphAvailable(graph)) {
                update.begin(graph, RZGraphUpdate::Call::Start);
                if (isRecording) {
                    RZAdoptGraph(site, graph);
                }
            }
        });
        const OSStatus status = original(graph);
        RZRoadGuarded(site, [&] {
            update.end(status, NO);
            if (isRecording) {
                noteStart({site, tqhook::kNameOf<&AUGraphStart>.data(), status}, graph);
            }
        });
        return status;
    }),
    tqhook::hook<&AUGraphUpdate>([](auto* original, AUGraph graph, Boolean* isUpdated) {
        constexpr const RZLogSite& site = kSiteOf<&AUGraphUpdate>;
        const BOOL isRecording = RZGraphHooks.isRecording();
        RZGraphUpdate update;
        RZRoadGuarded(site, [&] { update.begin(graph, RZGraphUpdate::Call::Update); });
        const OSStatus status = original(graph, isUpdated);
        RZRoadGuarded(site, [&] {
            update.end(status, isRecording);
            if (isRecording) {
                noteUpdate({site, tqhook::kNameOf<&AUGraphUpdate>.data(), status}, graph);
            }
        });
        return status;
    }),
    hookAfter<&AUGraphStop>([](const AnsweredCall& call, AUGraph graph) {
        call.site.log(2, "[AUGraphHook] %s: %p, err: %d", call.name, graph, call.status);
        if (const auto obj = manager().findAudioUnitObjByAUGraph(graph)) {
            manager().audioUnitStop(obj);
        } else {
            call.logIgnored(3, "stop", graph, nullptr);
            RZUnitFacts::shared().stopped(nullptr, graph);
        }
    }),
    hookAfter<&AUGraphClose>([](const AnsweredCall& call, AUGraph graph) {
        // Interactions outlive the units: the graph may be opened again without us.
        RZGiveBackNode(graph);
        disposeCapture(call, graph);
        RZUnitFacts::shared().graphClosed(graph);
    }),
    hookAfter<&DisposeAUGraph>([](const AnsweredCall& call, AUGraph graph) {
        disposeCapture(call, graph);
        RZUnitFacts::shared().graphDisposed(graph);
    }),
};

std::span<const TQRebinding> rows() {
    static const auto all = kHooks.rows<TQRebinding>();
    return all;
}

[[gnu::constructor]] void load() {
    RZGuarded(RZLogSite(kFile, "+[RZReplayAudioUnitGraphCapturer load]"), [] {
        RZReplayAudioUnitCapture_initHookConfig();
        if (korva_audio_utils::AudioHookConfig::getInstance()->isHookEnable()) {
            RZReplayAudioUnitGraphCapturer::startHook();
        }
    });
    if (!RZGraphHooks.isStarted()) {
        korva_audio_utils::hooksAreInstalled(false);
    }
    // The program has not set up this thread yet, its signal mask included.
    korva_audio_utils::BusGuard::mayBlockAgain();
}

}  // namespace

constinit RZHookSet RZGraphHooks({"[RZReplay] start AUGraphCapture", rows,
                                  TQHookSelfTest::testAUGraphHook});

void RZReplayAudioUnitGraphCapturer::startHook() {
    RZGuarded(RZLogSite(kFile, "+[RZReplayAudioUnitGraphCapturer startHook]"), [] {
        RZHookSet::start({&RZGraphHooks, &RZInteractionHooks, &RZEditHooks});
    });
}

BOOL RZReplayAudioUnitGraphCapturer::isHookStarted() {
    return RZGraphHooks.isStarted();
}

void RZReplayAudioUnitGraphCapturer::enableHook(BOOL enable) {
    RZGraphHooks.setRecording(enable);
}
