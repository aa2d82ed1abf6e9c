#include "RZReplayAudioUnitGraphCapturer.h"

#include <AudioToolbox/AudioToolbox.h>
#include <Foundation/Foundation.h>
#include <audio_hook_config.h>

#include <array>

#include "PendingNodes.h"
#include "RZBoundary.h"
#include "RZHookSwitch.h"
#include "RZLogSite.h"
#include "RZStreamMixManager.h"
#include "RZUnitFacts.h"
#include "TQAudioCaptureBase.h"
#include "TQAudioRecordResolver.h"
#include "TQAudioUnitRecordResolveManager.h"
#include "TQHookSelfTest.h"

namespace {

constexpr const char* kFile = "Classes/AUGraphCapturer/RZReplayAudioUnitGraphCapturer";

// Constant-initialised: the rebinding may fill and use them before any constructor has run.
constinit RZHookSwitch hook;

constinit decltype(&NewAUGraph) platform_NewAUGraph = nullptr;
constinit decltype(&AUGraphSetNodeInputCallback) platform_AUGraphSetNodeInputCallback = nullptr;
constinit decltype(&AUGraphAddNode) platform_AUGraphAddNode = nullptr;
constinit decltype(&AUGraphRemoveNode) platform_AUGraphRemoveNode = nullptr;
constinit decltype(&AUGraphOpen) platform_AUGraphOpen = nullptr;
constinit decltype(&AUGraphStart) platform_AUGraphStart = nullptr;
constinit decltype(&AUGraphUpdate) platform_AUGraphUpdate = nullptr;
constinit decltype(&AUGraphStop) platform_AUGraphStop = nullptr;
constinit decltype(&AUGraphClose) platform_AUGraphClose = nullptr;
constinit decltype(&DisposeAUGraph) platform_DisposeAUGraph = nullptr;

RZStreamMixManager& manager() {
    return *RZStreamMixManager::sharedManager();
}

/// NO when the companion handles the graph already.
BOOL isAUGraphAvailable(AUGraph graph) {
    return !TQAudioUnitRecordResolveManager::sharedManager().existAuGraph(graph);
}

OSStatus Record_graph_NewAUGraph(AUGraph* outGraph) {
    // Told whatever the switch says: the self-test must see its graph.
    const OSStatus status = platform_NewAUGraph(outGraph);
    if (outGraph != nullptr) {
        TQHookSelfTest::notifyNewAUGraph(*outGraph);
    }
    return status;
}

OSStatus Record_graph_AUGraphAddNode(AUGraph graph, const AudioComponentDescription* desc,
                                     AUNode* outNode) {
    constexpr RZLogSite site(kFile, "Record_graph_AUGraphAddNode");
    const BOOL isRecording = hook.isRecording();
    const OSStatus status = platform_AUGraphAddNode(graph, desc, outNode);
    if (isRecording) {
        RZGuarded(site, [&] {
            const AUNode node = outNode == nullptr ? -1 : *outNode;
            site.log(2, "[AUGraphHook] AUGraphAddNode: %p, %d, err: %d", graph, node, status);
            if (status != 0 || desc == nullptr || desc->componentType != kAudioUnitType_Output) {
                return;
            }
            if (isAUGraphAvailable(graph)) {
                site.log(2, "[AUGraphHook] Catch Node when Added: %p, %d", graph, node);
                PendingNodes::shared().set(graph, {node, *desc, nullptr, nullptr});
            } else {
                site.log(3, "[AUGraphHook] AUGraph exists in Resolver, ignore AUGraph: %p, %d",
                         graph, node);
                if (graph != manager().mGraph()) {
                    RZUnitFacts::shared().leftAlone(nullptr, graph, RZUnitReason::Anothers);
                }
            }
        });
    }
    return status;
}

/// Remembers the host's callback where the node is known; true when ours goes in instead.
bool takeOverNodeCallback(AUGraph graph, AUNode node, const AURenderCallbackStruct& callback) {
    const auto obj = manager().findAudioUnitObjByAUGraph(graph);
    if (obj && obj->inNode() == node) {
        obj->setOriginCallback(callback);
        return callback.inputProc != nullptr;
    }
    return PendingNodes::shared().setCallback(graph, node, callback) &&
           callback.inputProc != nullptr;
}

OSStatus Record_graph_AUGraphSetNodeInputCallback(AUGraph graph, AUNode node, UInt32 inputNumber,
                                                  const AURenderCallbackStruct* callback) {
    constexpr RZLogSite site(kFile, "Record_graph_AUGraphSetNodeInputCallback");
    if (!hook.isRecording()) {
        return platform_AUGraphSetNodeInputCallback(graph, node, inputNumber, callback);
    }
    const AURenderCallbackStruct replacement{RZReplayAudioUnitCapture_InputProcessCallback, graph};
    bool isTakenOver = false;
    // Ours, read back from the graph and set again, would call itself for ever.
    if (callback != nullptr &&
        callback->inputProc != RZReplayAudioUnitCapture_InputProcessCallback) {
        RZGuarded(site, [&] { isTakenOver = takeOverNodeCallback(graph, node, *callback); });
    }
    const OSStatus status = platform_AUGraphSetNodeInputCallback(
        graph, node, inputNumber, isTakenOver ? &replacement : callback);
    RZGuarded(site, [&] {
        site.log(2, "[AUGraphHook] AUGraphSetNodeInputCallback: %p, %d, %d, %p, err:%d", graph,
                 node, inputNumber, callback, status);
    });
    return status;
}

OSStatus Record_graph_AUGraphRemoveNode(AUGraph graph, AUNode node) {
    constexpr RZLogSite site(kFile, "Record_graph_AUGraphRemoveNode");
    const BOOL isRecording = hook.isRecording();
    const OSStatus status = platform_AUGraphRemoveNode(graph, node);
    if (isRecording) {
        RZGuarded(site, [&] {
            site.log(2, "[AUGraphHook] AUGraphRemoveNode: %p, %d, err: ", graph, node);
            if (status == 0) {
                PendingNodes::shared().erase(graph, node);
            }
        });
    }
    return status;
}

OSStatus Record_graph_AUGraphOpen(AUGraph graph) {
    constexpr RZLogSite site(kFile, "Record_graph_AUGraphOpen");
    const BOOL isRecording = hook.isRecording();
    const OSStatus status = platform_AUGraphOpen(graph);
    if (isRecording) {
        RZGuarded(site, [&] {
            site.log(2, "[AUGraphHook] AUGraphOpen: %p, err: %d", graph, status);
            if (!isAUGraphAvailable(graph) || status != 0) {
                return;
            }
            const bool isKnown =
                PendingNodes::shared().with(graph, [&](const PendingNodeInfo& info) {
                    AudioUnit unit = nullptr;
                    const OSStatus error = AUGraphNodeInfo(graph, info.node, nullptr, &unit);
                    if (error != 0) {
                        site.log(4, "[AUGraphHook] get node info: %p error:%d", graph, error);
                        return;
                    }
                    if (const auto obj = manager().newAudioUnitObj(unit)) {
                        obj->setAuGraph(graph);
                        obj->setInNode(info.node);
                        obj->setOriginCallback({info.inputProc, info.inputProcRefCon});
                    }
                });
            if (!isKnown) {
                site.log(3, "[AUGraphHook] No valid node in AUGraph: %p error:%d", graph, 0);
            }
        });
    }
    return status;
}

OSStatus Record_graph_AUGraphStart(AUGraph graph) {
    constexpr RZLogSite site(kFile, "Record_graph_AUGraphStart");
    const BOOL isRecording = hook.isRecording();
    const OSStatus status = platform_AUGraphStart(graph);
    if (isRecording) {
        RZGuarded(site, [&] {
            site.log(2, "[AUGraphHook] AUGraphStart: %p, err:%d", graph, status);
            if (!isAUGraphAvailable(graph)) {
                site.log(3, "[AUGraphHook] Ignore AUGraph start because in resolver: %p", graph);
                return;
            }
            const auto obj = manager().findAudioUnitObjByAUGraph(graph);
            if (obj && status == 0) {
                manager().audioUnitStart(obj);
            } else {
                site.log(4,
                         "[AUGraphHook] Ignore audio unit start with AUGraphStart: %p, unitObj: "
                         "%p, err: %d",
                         graph, obj.get(), status);
            }
        });
    }
    return status;
}

OSStatus Record_graph_AUGraphUpdate(AUGraph graph, Boolean* outIsUpdated) {
    constexpr RZLogSite site(kFile, "Record_graph_AUGraphUpdate");
    const BOOL isRecording = hook.isRecording();
    const OSStatus status = platform_AUGraphUpdate(graph, outIsUpdated);
    if (isRecording) {
        RZGuarded(site, [&] {
            site.log(2, "[AUGraphHook] AUGraphUpdate: %p", graph);
            if (status != 0) {
                return;
            }
            if (const auto obj = manager().findAudioUnitObjByAUGraph(graph)) {
                manager().audioUnitUpdate(obj);
            } else {
                site.log(4,
                         "[AUGraphHook] Ignore audio unit update with AUGraphUpdate: %p, unitObj: "
                         "%p, err: %d",
                         graph, static_cast<void*>(nullptr), 0);
            }
        });
    }
    return status;
}

OSStatus Record_graph_AUGraphStop(AUGraph graph) {
    constexpr RZLogSite site(kFile, "Record_graph_AUGraphStop");
    const BOOL isRecording = hook.isRecording();
    const OSStatus status = platform_AUGraphStop(graph);
    if (isRecording) {
        RZGuarded(site, [&] {
            site.log(2, "[AUGraphHook] AUGraphStop: %p, err: %d", graph, status);
            if (const auto obj = manager().findAudioUnitObjByAUGraph(graph)) {
                manager().audioUnitStop(obj);
            } else {
                site.log(3,
                         "[AUGraphHook] Ignore audio unit stop with AUGraphStop: %p, unitObj: %p, "
                         "err: %d",
                         graph, static_cast<void*>(nullptr), status);
            }
        });
    }
    return status;
}

OSStatus Record_graph_AUGraphClose(AUGraph graph) {
    constexpr RZLogSite site(kFile, "Record_graph_AUGraphClose");
    const BOOL isRecording = hook.isRecording();
    const OSStatus status = platform_AUGraphClose(graph);
    if (isRecording) {
        RZGuarded(site, [&] {
            site.log(2, "[AUGraphHook] AUGraphClose: %p, err: %d", graph, status);
            if (const auto obj = manager().findAudioUnitObjByAUGraph(graph)) {
                manager().disposeAudioUnitObj(obj);
            } else {
                site.log(3,
                         "[AUGraphHook] Ignore audio unit stop with AUGraphClose: %p, unitObj: %p, "
                         "err: %d",
                         graph, static_cast<void*>(nullptr), status);
            }
            RZUnitFacts::shared().graphClosed(graph);
        });
    }
    return status;
}

OSStatus Record_graph_DisposeAUGraph(AUGraph graph) {
    constexpr RZLogSite site(kFile, "Record_graph_DisposeAUGraph");
    const BOOL isRecording = hook.isRecording();
    const OSStatus status = platform_DisposeAUGraph(graph);
    if (isRecording) {
        RZGuarded(site, [&] {
            site.log(2, "[AUGraphHook] DisposeAUGraph: %p, err: %d", graph, status);
            if (const auto obj = manager().findAudioUnitObjByAUGraph(graph)) {
                manager().disposeAudioUnitObj(obj);
            } else {
                site.log(3,
                         "[AUGraphHook] Ignore audio unit stop with DisposeAUGraph: %p, unitObj: "
                         "%p, err: %d",
                         graph, static_cast<void*>(nullptr), status);
            }
            RZUnitFacts::shared().graphDisposed(graph);
        });
    }
    return status;
}

[[gnu::constructor]] void load() {
    RZGuarded(RZLogSite(kFile, "+[RZReplayAudioUnitGraphCapturer load]"), [] {
        RZReplayAudioUnitCapture_initHookConfig();
        if (korva_audio_utils::AudioHookConfig::getInstance()->isHookEnable()) {
            RZReplayAudioUnitGraphCapturer::startHook();
        }
    });
}

}  // namespace

void RZReplayAudioUnitGraphCapturer::startHook() {
    hook.startOnce([](std::atomic<bool>& started) {
        NSLog("[RZReplay] start AUGraphCapture");
        started = true;
        std::array records{
            rebinding("NewAUGraph", Record_graph_NewAUGraph, platform_NewAUGraph),
            rebinding("AUGraphSetNodeInputCallback", Record_graph_AUGraphSetNodeInputCallback,
                      platform_AUGraphSetNodeInputCallback),
            rebinding("AUGraphAddNode", Record_graph_AUGraphAddNode, platform_AUGraphAddNode),
            rebinding("AUGraphRemoveNode", Record_graph_AUGraphRemoveNode,
                      platform_AUGraphRemoveNode),
            rebinding("AUGraphOpen", Record_graph_AUGraphOpen, platform_AUGraphOpen),
            rebinding("AUGraphStart", Record_graph_AUGraphStart, platform_AUGraphStart),
            rebinding("AUGraphUpdate", Record_graph_AUGraphUpdate, platform_AUGraphUpdate),
            rebinding("AUGraphStop", Record_graph_AUGraphStop, platform_AUGraphStop),
            rebinding("AUGraphClose", Record_graph_AUGraphClose, platform_AUGraphClose),
            rebinding("DisposeAUGraph", Record_graph_DisposeAUGraph, platform_DisposeAUGraph),
        };
        tqreplay_rebind_symbols(records.data(), records.size());
        TQHookSelfTest::testAUGraphHook();
    });
}

BOOL RZReplayAudioUnitGraphCapturer::isHookStarted() {
    return hook.isStarted();
}

void RZReplayAudioUnitGraphCapturer::enableHook(BOOL enable) {
    hook.setRecording(enable);
}
