#include "RZGraphFacts.h"

#include <algorithm>

#include "RZHookSet.h"
#include "RZHostCallbacks.h"
#include "RZStreamMixManager.h"
#include "TQAudioCaptureBase.h"

bool RZIsOurs(const AURenderCallbackStruct& callback) {
    return callback.inputProc == RZReplayAudioUnitCapture_InputProcessCallback;
}

std::vector<AUNodeRenderCallback> RZCallbacksOf(AUGraph graph, AUNode node) {
    // Ours among them: the answer for the program names none.
    const RZOwnCalls own;
    UInt32 count = 0;
    if (AUGraphCountNodeInteractions(graph, node, &count) != 0 || count == 0) {
        return {};
    }
    std::vector<AUNodeInteraction> all(count);
    if (AUGraphGetNodeInteractions(graph, node, &count, all.data()) != 0) {
        return {};
    }
    std::vector<AUNodeRenderCallback> callbacks;
    for (const AUNodeInteraction& one : all) {
        if (one.nodeInteractionType == kAUNodeInteraction_InputCallback &&
            one.nodeInteraction.inputCallback.destNode == node) {
            callbacks.push_back(one.nodeInteraction.inputCallback);
        }
    }
    return callbacks;
}

std::optional<PendingNodeInfo> RZOutputNodeOf(AUGraph graph) {
    UInt32 count = 0;
    if (AUGraphGetNodeCount(graph, &count) != 0) {
        return std::nullopt;
    }
    for (UInt32 i = 0; i < count; ++i) {
        PendingNodeInfo info{};
        if (AUGraphGetIndNode(graph, i, &info.node) == 0 &&
            AUGraphNodeInfo(graph, info.node, &info.desc, nullptr) == 0 &&
            info.desc.componentType == kAudioUnitType_Output) {
            return info;
        }
    }
    return std::nullopt;
}

bool RZIsWaiting(AUGraph graph) {
    RZHostCallbacks& known = RZHostCallbacks::shared();
    const bool isRunning = RZAnswersYes(AUGraphIsRunning, graph);
    const bool isInitialized = RZAnswersYes(AUGraphIsInitialized, graph);
    if (isInitialized && !known.isCarriedOut(graph)) {
        known.markCarriedOut(graph, true);
    }
    return isRunning ||
           (!isInitialized && RZAnswersYes(AUGraphIsOpen, graph) && known.isCarriedOut(graph));
}

void RZSettleQueued(AUGraph graph) {
    RZHostCallbacks& known = RZHostCallbacks::shared();
    const RZHostCallback node = known.of(graph);
    if (node.isQueued && !RZIsWaiting(graph)) {
        known.note(graph, node.updated());
    } else if (node.haveOthersQueued && !RZIsWaiting(graph)) {
        known.noteOthersQueued(graph, false);
    }
}

void RZChooseOrigin(RZReplayAudioUnitObject& obj, AUGraph graph) {
    const auto callbacks = RZCallbacksOf(graph, obj.inNode());
    const RZHostCallback node = RZHostCallbacks::shared().of(graph);
    // The graph tells at once what waits, and the unit goes on with what it has.
    const bool isThere =
        node.isQueued || std::any_of(callbacks.begin(), callbacks.end(),
                                     [](const auto& one) { return RZIsOurs(one.cback); });
    const RZHostCallback unit = RZHostCallbacks::shared().of(obj.inUnit());
    if (unit.isOurs) {
        obj.setUnitsCallback(unit.callback);
    }
    if (node.isOurs) {
        obj.setNodesCallback(node.callback);
    }
    const bool isOverNodes = (unit.isOurs || unit.isForeign) && unit.turn > node.turn;
    if (isThere && node.isOurs && !isOverNodes) {
        obj.setNodesOriginCallback(node.callback);
    } else if (unit.isOurs) {
        obj.setOriginCallback(unit.callback);
    } else {
        obj.setOriginCallback({});
    }
}

void RZSettleGraph(AUGraph graph) {
    RZSettleQueued(graph);
    const auto obj = RZStreamMixManager::sharedManager()->findAudioUnitObjByAUGraph(graph);
    AudioUnit unit = nullptr;
    if (obj && !RZAnswersYes(AUGraphIsRunning, graph) &&
        AUGraphNodeInfo(graph, obj->inNode(), nullptr, &unit) == 0 && obj->inUnit() == unit) {
        RZChooseOrigin(*obj, graph);
    }
}
