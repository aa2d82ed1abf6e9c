#include "RZGraphTakeOver.h"

#include <algorithm>

#include "RZGraphFacts.h"
#include "RZHookSet.h"
#include "RZStreamMixManager.h"
#include "RZUnitFacts.h"
#include "TQAudioCaptureBase.h"
#include "TQAudioUnitRecordResolveManager.h"

namespace {

RZStreamMixManager& manager() {
    return *RZStreamMixManager::sharedManager();
}

OSStatus setCallback(AUGraph graph, AUNode node, UInt32 input,
                     const AURenderCallbackStruct& callback) {
    const RZOwnCalls own;
    return AUGraphSetNodeInputCallback(graph, node, input, &callback);
}

std::optional<PendingNodeInfo> pendingOf(AUGraph graph) {
    std::optional<PendingNodeInfo> found;
    PendingNodes::shared().with(graph, [&](const PendingNodeInfo& info) { found = info; });
    return found;
}

/// An edit of an initialised graph initialises its units, also one that the host has uninitialised
/// behind its back; a running graph would make it at an update that the host may never ask for; and
/// what the unit itself was given may lie over what the graph has.
bool mayEdit(AUGraph graph, AUNode node) {
    AudioUnit unit = nullptr;
    const bool isOpen = AUGraphNodeInfo(graph, node, nullptr, &unit) == 0 && unit != nullptr;
    return !RZAnswersYes(AUGraphIsInitialized, graph) && !RZAnswersYes(AUGraphIsRunning, graph) &&
           (!isOpen || RZHostCallbacks::shared().of(unit).turn == 0);
}

/// Ours goes where the graph feeds the node from a callback of the host's. Only as long as no edit
/// has reached the units: a later one may go over what the host gives the unit itself.
void takeOverNode(const RZReplayAudioUnitObject& obj, AUGraph graph) {
    const auto callbacks = RZCallbacksOf(graph, obj.inNode());
    const bool isThere = std::any_of(callbacks.begin(), callbacks.end(),
                                     [](const auto& one) { return RZIsOurs(one.cback); });
    const auto fed = std::find_if(callbacks.begin(), callbacks.end(),
                                  [](const auto& one) { return one.destInputNumber == 0; });
    if (isThere || fed == callbacks.end()) {
        return;
    }
    const AUNodeRenderCallback& host = *fed;
    RZHostCallbacks& known = RZHostCallbacks::shared();
    const RZHostCallback before = known.of(graph);
    known.note(graph, {host.cback, 0, true});
    const AURenderCallbackStruct ours{RZReplayAudioUnitCapture_InputProcessCallback, graph};
    if (setCallback(graph, obj.inNode(), 0, ours) != 0) {
        known.note(graph, before);
    }
}

}  // namespace

bool RZNodeTakeOver::begin(AUGraph graph, AUNode node, UInt32 input,
                           const AURenderCallbackStruct& callback) {
    const auto obj = manager().findAudioUnitObjByAUGraph(graph);
    const bool isObjs = obj && obj->inNode() == node;
    const auto pending = pendingOf(graph);
    const bool isPending = pending && pending->node == node;
    RZHostCallbacks& known = RZHostCallbacks::shared();
    const bool isToWait = RZIsWaiting(graph);
    // An output unit plays its input 0 alone. With ours on another one the graph would come to its
    // refusal as often as we set it, and in another order.
    if ((!isObjs && !isPending) || input != 0) {
        if (isToWait && (obj || pending)) {
            known.noteOthersQueued(graph, true);
        }
        return false;
    }
    const RZHostCallback noted = known.of(graph);
    // Without an object, ours goes in only where opening the graph is going to make one.
    const bool canTakeOver = isObjs || !RZAnswersYes(AUGraphIsOpen, graph);
    const bool isTakenOver = callback.inputProc != nullptr && canTakeOver;
    RZHostCallback now{callback, 0, isTakenOver};
    // The unit goes on with the old callback until the graph's edits are carried out.
    if ((isObjs || noted.isOurs) && isToWait) {
        now = noted;
        now.isQueued = true;
        now.isBehindOthers = noted.haveOthersQueued;
        now.isOursNext = isTakenOver;
        now.next = callback;
    }
    known.note(graph, now);
    graph_ = graph;
    noted_ = noted;
    if (isPending) {
        pending_ = pending;
        PendingNodes::shared().setCallback(graph, node, callback);
    }
    if (isObjs) {
        obj_ = obj;
        before_ = obj->originCallback();
        nodesBefore_ = obj->nodesCallback();
        if (!now.isQueued) {
            obj->setNodesOriginCallback(callback);
        }
    }
    return isTakenOver;
}

void RZNodeTakeOver::end(OSStatus status) {
    if (status == 0 || graph_ == nullptr) {
        return;
    }
    RZHostCallbacks::shared().note(graph_, noted_);
    if (pending_) {
        PendingNodes::shared().set(graph_, *pending_);
    }
    if (obj_) {
        obj_->setNodesOriginCallback(before_);
        obj_->setNodesCallback(nodesBefore_);
    }
}

void RZCaptureNode(const RZLogSite& site, AUGraph graph, const PendingNodeInfo& info,
                   bool isFresh) {
    AudioUnit unit = nullptr;
    const OSStatus error = AUGraphNodeInfo(graph, info.node, nullptr, &unit);
    if (error != 0) {
        site.log(4, "[AUGraphHook] get node info: %p error:%d", graph, error);
        return;
    }
    const auto old = manager().findAudioUnitObjByAUGraph(graph);
    if (old && old->inUnit() == unit) {
        return;  // opened again, which changes nothing
    }
    if (isFresh) {
        RZHostCallbacks::shared().markCarriedOut(graph, false);
    }
    if (old) {
        // Its node was removed and its unit is gone; it would be found in the new one's place.
        manager().disposeAudioUnitObj(old);
    }
    RZHostCallbacks::shared().markNodes(unit);
    RZSettleQueued(graph);
    const auto obj = manager().newAudioUnitObj(unit);
    if (!obj) {
        RZUnitFacts::shared().leftAlone(unit, graph, RZUnitReason::NoNumberFree);
        if (isFresh) {
            RZGiveBackNode(graph);
        }
        return;
    }
    obj->setAuGraph(graph);
    obj->setInNode(info.node);
    if (isFresh) {
        takeOverNode(*obj, graph);
    }
    RZChooseOrigin(*obj, graph);
}

void RZAdoptGraph(const RZLogSite& site, AUGraph graph) {
    const auto& resolver = TQAudioUnitRecordResolveManager::sharedManager();
    const auto info = RZOutputNodeOf(graph);
    AudioUnit unit = nullptr;
    if (!info || AUGraphNodeInfo(graph, info->node, nullptr, &unit) != 0 || unit == nullptr) {
        return;
    }
    const auto obj = manager().findAudioUnitObjByAUGraph(graph);
    if (obj && obj->inUnit() == unit) {
        return;
    }
    if (RZAnswersYes(AUGraphIsInitialized, graph) && !resolver.existAudioUnit(unit)) {
        if (!pendingOf(graph)) {
            PendingNodes::shared().set(graph, *info);
        }
        RZCaptureNode(site, graph, *info, false);
    }
}

void RZSettleEdit(AUGraph graph) {
    const RZHostCallback node = RZHostCallbacks::shared().of(graph);
    if ((node.isQueued || node.haveOthersQueued) && !RZIsWaiting(graph)) {
        RZSettleGraph(graph);
    }
}

void RZGiveBackNode(AUGraph graph) {
    RZHostCallbacks& known = RZHostCallbacks::shared();
    // Where an update was waited for, the graph keeps what it is to bring.
    RZHostCallback host = known.of(graph).updated();
    const auto info = pendingOf(graph);
    // Where ours has to stay it calls what is known of the host's.
    if (!host.isOurs || !info || !mayEdit(graph, info->node)) {
        return;
    }
    for (const AUNodeRenderCallback& one : RZCallbacksOf(graph, info->node)) {
        if (RZIsOurs(one.cback) &&
            setCallback(graph, info->node, one.destInputNumber, host.callback) != 0) {
            return;
        }
    }
    host.isOurs = false;
    known.note(graph, host);
}
